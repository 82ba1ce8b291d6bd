// Processor time of what the bounds admit: twice the text costs about twice as much.
#include "platform/xml/xml_guarded.h"

#include "tests/xml/hostile_texts.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>

static double thread_seconds()
{
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The least of several, as whatever else the machine does only adds to it.
static double cost_of(const std::string &text)
{
    static constexpr xml_bounds REPLY = {.bytes = 64 << 20,
                                         .nodes = 2'000'000,
                                         .names = 8192,
                                         .depth = 16,
                                         .attributes = 2'000'000,
                                         .element_attributes = 32,
                                         .errors = 16,
                                         .recovers = false};
    double least = 1e9;
    for (int i = 0; i < 5; i++) {
        double begin = thread_seconds();
        EXPECT_NE(xml_parse_guarded(text, REPLY, {}, nullptr), nullptr);
        least = std::min(least, thread_seconds() - begin);
    }
    return least;
}

TEST(XmlCost, GrowsWithTheLengthOfWhatIsTaken)
{
    const hostile_text texts[] = {
        {"elements", [](size_t bytes) { return repeated("<a>", [](size_t) { return "<b>c</b>"; }, bytes, "</a>"); }},
        {"names", [](size_t bytes) {
             return repeated("<a>", [](size_t i) { return "<b" + std::to_string(i % 8000) + "/>"; }, bytes, "</a>");
         }},
        {"attributes", [](size_t bytes) {
             return repeated("<a>", [](size_t) { return "<b c='d' e='f'/>"; }, bytes, "</a>");
         }},
        {"text", [](size_t bytes) { return repeated("<a>", [](size_t) { return "b&lt;\n"; }, bytes, "</a>"); }},
        {"one attribute", [](size_t bytes) { return repeated("<a b='", [](size_t) { return "c&lt; "; }, bytes, "'/>"); }},
        {"one comment", [](size_t bytes) { return repeated("<a><!--", [](size_t) { return "b-\n"; }, bytes, "--></a>"); }},
    };
    for (const hostile_text &of : texts) {
        double once = cost_of(of.make(1 << 18)), four_times = cost_of(of.make(1 << 20));
        // Sixteen times as much if it grew with the square.
        EXPECT_LT(four_times, 9 * once) << of.name;
    }
}
