// POSIX only: the limit of descriptors, which brings about in earnest what ms_limits_test.cpp injects on every host.
#include "platform/os/os.h"
#include "tests/ms/ms_fixture.h"
#include "tests/support/log_capture.h"

#include <sys/resource.h>

#include <cstdio>

class MsDescriptorsTest : public MsServiceTest {};

class descriptor_limit {
public:
    // No descriptor can be opened while it lives.
    descriptor_limit()
    {
        getrlimit(RLIMIT_NOFILE, &before_);
        std::FILE *next = std::fopen("/dev/null", "r");
        rlimit none = before_;
        none.rlim_cur = static_cast<rlim_t>(fileno(next));
        std::fclose(next);
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~descriptor_limit() { setrlimit(RLIMIT_NOFILE, &before_); }
    descriptor_limit(const descriptor_limit &) = delete;
    descriptor_limit &operator=(const descriptor_limit &) = delete;

private:
    rlimit before_;
};

TEST_F(MsDescriptorsTest, WithoutDescriptorsNewConnectionsAreTurnedAwayAndTheRestGoesOn)
{
#if defined(__SANITIZE_ADDRESS__)
    GTEST_SKIP() << "the sanitizer opens a descriptor of its own to check objects, and takes its failure for a finding";
#endif
    log_capture log;
    start();
    raw_peer served(port);
    MsLink *served_link = link_of(served);
    raw_peer peers[5];
    {
        descriptor_limit none;
        for (raw_peer &peer : peers) {
            peer.connect(port);
            EXPECT_TRUE(peer.sees_end());
        }
        EXPECT_EQ(link_of(served), served_link);
        EXPECT_EQ(log.count("no descriptors left, new connections are turned away", 4), 1u);
    }
    raw_peer again(port);
    EXPECT_NE(link_of(again), served_link);
    EXPECT_EQ(log.count("no descriptors left, new connections are turned away", 4), 1u);
}
