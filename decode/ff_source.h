// Decoding of every non-DSD format through FFmpeg, as 32-bit integer or float
// samples, whichever the source's decoder delivers.
// Internal to decode/; the contracts are those of decode.h.
#pragma once
#include <cstdint>
#include <string>

#include "decode/decode.h"

struct FfSource;

FfSource* ffOpen(const char* path, StreamKind kind, std::string* error);
StreamInfo ffInfo(const FfSource* s);
uint64_t ffLength(const FfSource* s);
uint32_t ffRead(FfSource* s, void* buffer, uint32_t bytes);
bool ffSeek(FfSource* s, uint64_t pos);
bool ffSeekExact(const FfSource* s);
void ffClose(FfSource* s);
