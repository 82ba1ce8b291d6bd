// What an import tells when it is done.
#pragma once

#include "tools/orbrec/import_flow.h"
#include "tools/orbrec/orbrec.h"

#include <span>

class import_report {
public:
    // `pictures_out` in `files`, the recordings that were made of this input.
    void add(const import_flow &flow, int64_t pictures_out, std::span<const written_file> files);
    // `files`: all that were completed, also those of an input that then failed.
    void print(bool as_json, std::span<const written_file> files) const;

private:
    json_ref inputs_{json_object_new_array()};
    std::vector<std::string> summaries_;
};
