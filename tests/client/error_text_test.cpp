#include "client/vodclient.h"

#include <gtest/gtest.h>

#include <cstring>
#include <set>
#include <string>

TEST(ErrorTextTest, EveryRejectCodeHasATextOfItsOwn)
{
    std::set<std::string> texts;
    for (uint32_t code :
         {0x1000007u, 0x1000008u, 0x1000009u, 0x100000au, 0x1000027u, 0x1000028u, 0x100002fu, 0x1000036u, 0x100003du})
        texts.insert(vodclient_error_text(code));
    texts.insert(vodclient_error_text(0));
    EXPECT_EQ(texts.size(), 10u);
}

TEST(ErrorTextTest, TextsSayWhatToDo)
{
    EXPECT_NE(std::strstr(vodclient_error_text(0x1000008), "try again later"), nullptr);
    EXPECT_NE(std::strstr(vodclient_error_text(0x1000027), "259"), nullptr);
    EXPECT_NE(std::strstr(vodclient_error_text(0x1000028), "check its name"), nullptr);
    EXPECT_NE(std::strstr(vodclient_error_text(0x100002f), "orbrec verify"), nullptr);
    EXPECT_NE(std::strstr(vodclient_error_text(0x100003d), "without analysis rules"), nullptr);
}

TEST(ErrorTextTest, UnknownCodesPointAtTheServicesLog)
{
    EXPECT_NE(std::strstr(vodclient_error_text(0xFFFFFFFF), "log"), nullptr);
}
