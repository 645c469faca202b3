#include "engine/decoder_setup.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "app/control.h"
#include "engine/now_playing.h"
#include "settings/settings.h"

bool isDsdFile(const char* path) {
    size_t n = std::strlen(path);
    if (n < 4) return false;
    const char* tail = path + n - 4;
    for (const char* s : {".dff", ".DFF", ".dsf", ".DSF"})
        if (std::strcmp(tail, s) == 0) return true;
    return false;
}

StreamChoice chooseStream(int32_t outputFormat, bool dsdFile, int32_t dsdMode, bool nativeBE) {
    if (outputFormat == kFormatS16) return {StreamKind::Int16, kFormatS16};
    int32_t pcmFormat = outputFormat == kFormatS24_3 ? kFormatS24_3 : kFormatS32;
    if (!dsdFile) return {StreamKind::Float, pcmFormat};
    if (dsdMode == kDsdPcm) return {StreamKind::DsdPcm, pcmFormat};
    // Native words exist only on a 32-bit card; a 24-bit one gets DoP instead.
    if (dsdMode == kDsdNative && pcmFormat == kFormatS32)
        return {StreamKind::DsdRaw, nativeBE ? kFormatDsdU32BE : kFormatDsdU32LE};
    return {StreamKind::Dop, pcmFormat};
}

DecoderStream openDecoder(int32_t outputFormat, int32_t defaultBits) {
    StreamChoice choice = chooseStream(outputFormat, isDsdFile(currentPath), settings.dsdMode,
                                       dsdNativeBE.load() != 0);
    DecoderStream out;
    out.kind = choice.kind;
    out.alsaFormat = choice.alsaFormat;
    out.handle = decodeOpen(currentPath, choice.kind, settings.dsdPcmRate);
    if (!out.handle) return out;

    StreamInfo info = decodeInfo(out.handle);
    bool native = choice.alsaFormat == kFormatDsdU32BE || choice.alsaFormat == kFormatDsdU32LE;
    // A DSD_U32 frame carries four of the raw stream's bytes per channel.
    streamRate.store(native ? info.rate / 4 : info.rate);
    streamBits.store(native ? 1 : (info.sourceBits ? info.sourceBits : defaultBits));
    streamChannels.store(info.channels);

    out.lengthBytes = decodeLength(out.handle);
    int32_t seconds = int32_t(decodeBytesToSeconds(out.handle, out.lengthBytes));
    streamSeconds.store(seconds);
    std::string text = formatDuration(seconds);
    std::snprintf(lengthText, sizeof lengthText, "%s", text.c_str());
    return out;
}

void closeDecoder(DecoderStream& stream) {
    if (stream.handle) decodeClose(stream.handle);
    stream.handle = nullptr;
}

void printGetInfoError(GetInfoReport which) {
    switch (which) {
        case GetInfoReport::FullMemoryS32:
            std::fputs("\nGetInfo error\n", stderr);
            std::fputs("> ", stderr);
            break;
        case GetInfoReport::FullMemoryOther:
            std::fputs("\nGetInfo error\n", stderr);
            std::fputs("\n> ", stderr);
            break;
        case GetInfoReport::DirectInput:
            std::fputs("\nGetInfo error\n", stdout);
            std::fflush(stdout);
            std::fputs("\n> ", stderr);
            break;
    }
    std::fflush(stderr);
}
