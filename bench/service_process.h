// The service as operators run it, started for a bench with settings of its own.
#pragma once

#include "bench/host.h"
#include "bench/load_options.h"

#include <memory>

struct service_settings {
    int sleep_interval = 5;
    int max_num = 200;
    std::string store = {}; // address of the record index; empty: the service's own
};

class service_process {
public:
    service_process(const load_options &options, const service_settings &settings);
    ~service_process();
    service_process(const service_process &) = delete;
    service_process &operator=(const service_process &) = delete;
    uint16_t port() const { return port_; }
    const child_process &process() const { return *process_; }

private:
    std::string root_;
    std::unique_ptr<child_process> process_;
    uint16_t port_ = 0;
};
