vod_add_fuzzer(xfmt LIBS silo)
