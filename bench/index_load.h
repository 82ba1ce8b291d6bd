// Filling a record index with the benches' recordings, in the way that every program fills it.
#pragma once

#include <cstdint>
#include <string>

// Lets go of the store in use and makes the index at another address ready.
void index_use(const std::string &address);
// Records `first` to `last` of `total`, so many a transaction; how many a second.
double index_load(uint64_t first, uint64_t last, uint64_t total, int batch);
