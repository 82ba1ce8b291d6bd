// Base64 in the standard and the URL-safe alphabet, and CRC-32. Encoders write a terminated text, decoders raw bytes.
#pragma once

#include <cstdint>

// ---- Encoding -------------------------------------------------------------------------------------------------------

// Four characters for three bytes begun, and the zero: `base64` has room for that.

// Both encode the text with its terminating zero, so abc becomes YWJjAA==. Return `base64`; NULL, logged, when an
// argument is NULL.
char *base64_encode(const char *srcdata, char *base64);
char *base64_encode_ex(const char *srcdata, char *base64); // URL-safe
// Encodes `binlength` bytes, none when it is negative. Returns `base64`; NULL, without a log line, when an argument is
// NULL.
char *bin_base64_encode(const void *bindata, int binlength, char *base64);
// URL-safe. `dst_buf_len` must exceed `src_len` * 4 / 3 + 11. Returns `dst_buf`; NULL, with `dst_buf` untouched, when
// an argument is NULL (logged) or a length is out of its bounds (not logged).
char *base64_encode_len(const void *src, int src_len, char *dst_buf, int dst_buf_len);

// ---- Decoding -------------------------------------------------------------------------------------------------------

// Return the bytes written: three for four characters, so `outdata` has room for three quarters of the text. Characters
// outside the alphabet are not reported. A text that ends inside a group ends there. -1, logged, for a NULL argument.
int base64_decode(const char *base64, void *outdata);
int base64_decode_ex(const char *base64, void *outdata); // URL-safe
// As base64_decode, but 0 when an argument is NULL.
int base64_decode_bin(const char *base64, void *bindata);

// ---- Checksum -------------------------------------------------------------------------------------------------------

// CRC-32 as in IEEE 802.3 of `len` bytes; 0 for no bytes, and `buf` may be NULL then.
uint32_t get_crc32_value(const void *buf, uint32_t len);
