vod_add_fuzzer(container_reader LIBS avfiltersdk vodos)
