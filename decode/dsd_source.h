// DSD sources (DSF, DSDIFF): raw DSD, DoP and DSD converted to PCM. Internal to
// decode/; the dispatcher sends every file whose content is DSD here.
// Not thread-safe per source. Failures come back as null / false with text.
#pragma once
#include <cstdint>
#include <string>

#include "decode/decode.h"

struct DsdSource;

bool dsdProbe(const char* path);
DsdSource* dsdOpen(const char* path, StreamKind kind, int32_t pcmRate, std::string* error);
StreamInfo dsdInfo(const DsdSource*);
uint64_t dsdLength(const DsdSource*);
uint32_t dsdRead(DsdSource*, void*, uint32_t);
bool dsdSeek(DsdSource*, uint64_t);
void dsdClose(DsdSource*);
