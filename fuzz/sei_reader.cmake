vod_add_fuzzer(sei_reader LIBS orb_userdata)
