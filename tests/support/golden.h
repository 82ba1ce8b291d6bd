// Bytes against which every host is held: what one of them sends or stores, the others read.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

// Hexadecimal, runs of eight bytes and more as "00*60".
inline std::string golden_hex(std::string_view bytes)
{
    std::string text;
    for (size_t i = 0; i < bytes.size();) {
        size_t run = 1;
        while (i + run < bytes.size() && bytes[i + run] == bytes[i])
            run++;
        run = run < 8 ? 1 : run;
        char byte[3];
        std::snprintf(byte, sizeof byte, "%02X", static_cast<unsigned char>(bytes[i]));
        text += run == 1 ? std::string(byte) : " " + std::string(byte) + "*" + std::to_string(run) + " ";
        i += run;
    }
    return text;
}

// FNV-1a of 64 bits, for what is too long to be written out.
inline uint64_t golden_hash(std::string_view bytes)
{
    uint64_t hash = 0xCBF29CE484222325;
    for (char byte : bytes)
        hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001B3;
    return hash;
}
