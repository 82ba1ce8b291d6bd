vod_add_fuzzer(package_parser LIBS ms)
