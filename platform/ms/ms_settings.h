// Settings of the message service: limits and addresses, from "etc\conf\ms_config.json".
#pragma once

#include <cstdint>
#include <string>

struct ms_settings {
    std::string listen = "127.0.0.1";
    uint16_t port = 7131;
    uint32_t threads = 4;
    uint32_t max_connections = 1024;
    uint32_t max_connections_per_address = 512;
    uint32_t max_queued_bytes = 1048576;  // per connection
    uint32_t receive_deadline_ms = 30000; // for the rest of a package that has begun; 0 none
    uint32_t idle_ms = 0;                 // without a byte either way; 0 none
    uint32_t dead_peer_ms = 60000;        // with queued bytes that do not move; 0 none
    uint32_t send_buffer_bytes = 0;       // of the socket; 0 leaves it to the host
    std::string device_id;                // empty: made from the host's name
};

// Missing file, missing key or a value of the wrong type gives the default; a number out of range the nearest allowed.
ms_settings ms_settings_read();
// The setting, or an identifier made from the host's name: always the same on one machine. At most 59 characters.
std::string ms_settings_device_id(const ms_settings &settings);
