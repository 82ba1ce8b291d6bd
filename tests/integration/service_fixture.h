// A running service with one recording; its end is checked.
#pragma once

#include "tests/integration/play_session.h"
#include "tests/integration/service_process.h"

#include <gtest/gtest.h>

class ServiceTest : public testing::Test {
protected:
    explicit ServiceTest(const service_settings &settings = {}) : service(settings) {}
    void SetUp() override { ASSERT_TRUE(service.start()); }
    void TearDown() override
    {
        if (service.is_running())
            service.stop();
    }
    // "rec/<name>", as clients name it.
    made_recording make(const std::string &name, const recording_plan &plan = {}) const
    {
        return make_recording(service.folder().file("rec/" + name), plan);
    }
    service_process service;
};

// Frames that are nearly all of the same size, with key frames as far apart as in footage; the middle is frame 56.
inline recording_plan even_plan()
{
    recording_plan plan;
    plan.frames = 110;
    plan.key_bytes = plan.delta_bytes = 6000;
    return plan;
}

// No two of its frames fit into one package.
inline recording_plan package_plan(int packages)
{
    recording_plan plan;
    plan.frames = packages;
    plan.key_bytes = plan.delta_bytes = 25'000;
    return plan;
}
