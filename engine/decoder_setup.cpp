#include "engine/decoder_setup.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "control/shown_text.h"
#include "engine/now_playing.h"
#include "engine/packing.h"
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
    if (outputFormat == kFormatS16)
        return {dsdFile ? StreamKind::DsdPcm : StreamKind::Pcm, CardStream::Pcm, kFormatS16};
    int32_t pcmFormat = outputFormat == kFormatS24_3 ? kFormatS24_3 : kFormatS32;
    if (!dsdFile) return {StreamKind::Pcm, CardStream::Pcm, pcmFormat};
    if (dsdMode == kDsdPcm) return {StreamKind::DsdPcm, CardStream::Pcm, pcmFormat};
    // Native words exist only on a 32-bit card; a 24-bit one gets DoP instead.
    if (dsdMode == kDsdNative && pcmFormat == kFormatS32)
        return {StreamKind::DsdRaw, CardStream::DsdNative,
                nativeBE ? kFormatDsdU32BE : kFormatDsdU32LE};
    return {StreamKind::DsdRaw, CardStream::Dop, pcmFormat};
}

int32_t dsdPcmRate(int32_t setting, int32_t dsdBitRate) {
    return dsdBitRate > 0 && dsdBitRate % 48000 == 0 ? setting / 44100 * 48000 : setting;
}

DecoderStream openDecoder(const char* path, int32_t outputFormat, int32_t defaultBits,
                          bool nativeBE) {
    StreamChoice choice = chooseStream(outputFormat, isDsdFile(path), settings.dsdMode, nativeBE);
    DecoderStream out;
    out.card = choice.card;
    out.alsaFormat = choice.alsaFormat;
    // A FIFO or device named like a song is refused with its reason, never
    // opened; the routine's own report of a failed open follows.
    if (std::string why; !decodeRegularFile(path, &why)) {
        out.error = std::string(path) + ": " + why;
        return out;
    }
    const int32_t pcmRate = choice.kind == StreamKind::DsdPcm
                                ? dsdPcmRate(settings.dsdPcmRate, decodeDsdBitRate(path))
                                : settings.dsdPcmRate;
    out.handle.reset(decodeOpen(path, choice.kind, pcmRate, &out.error));
    if (!out.handle) {
        out.error =
            std::string(path) + ": " + (out.error.empty() ? "cannot be decoded" : out.error);
        return out;
    }

    const StreamInfo info = decodeInfo(out.handle.get());
    const uint64_t length = decodeLength(out.handle.get());
    const uint32_t frameBytes = decodeFrameBytes(out.handle.get());
    out.sample = info.sample;
    out.channels = info.channels;
    out.bits = info.sourceBits ? info.sourceBits : defaultBits;
    out.sourceBits = info.sourceBits;
    out.rate = info.rate;
    out.decodedFrameBytes = frameBytes;
    out.frames = frameBytes ? length / frameBytes : 0;
    // A card frame takes 4 (native) or 2 (DoP) DSD bytes per channel; a last
    // partial one is completed with the idle byte.
    const uint32_t dsdBytes = out.card == CardStream::DsdNative ? 4
                              : out.card == CardStream::Dop     ? 2
                                                                : 0;
    if (dsdBytes) {
        out.rate = info.rate / int32_t(dsdBytes);
        out.decodedFrameBytes = frameBytes * dsdBytes;
        out.frames = (out.frames + dsdBytes - 1) / dsdBytes;
        if (out.card == CardStream::DsdNative) out.bits = 1;
    }
    out.seconds = out.rate > 0 ? int32_t(out.frames / uint64_t(out.rate)) : 0;
    return out;
}

std::string cardVerdict(const DecoderStream& ds) {
    if (ds.card == CardStream::Dop) return "DoP";
    if (ds.card == CardStream::DsdNative) return "native DSD";
    if (ds.sample == SampleType::Float64) return "DSD to PCM";
    const int32_t cardBits = int32_t(cardSampleBytes(ds.alsaFormat)) * 8;
    if (ds.sample == SampleType::Int32) {
        const int32_t source = ds.sourceBits > 0 ? ds.sourceBits : 32;
        if (source <= cardBits) return "bit-perfect";
        return "truncated to " + std::to_string(cardBits) + " bits";
    }
    // Float sources keep 24 significant bits on the wider cards.
    return "truncated to " + std::to_string(std::min(cardBits, int32_t(24))) + " bits";
}

void publishStream(PlayerControl& pc, const DecoderStream& ds) {
    pc.streamRate.store(ds.rate);
    pc.streamBits.store(ds.bits);
    pc.streamChannels.store(ds.channels);
    pc.streamSeconds.store(ds.seconds);
    std::string text = formatDuration(ds.seconds);
    std::snprintf(pc.lengthText, sizeof pc.lengthText, "%s", text.c_str());
}

void printGetInfoError(GetInfoReport which, const std::string& why) {
    std::FILE* report = which == GetInfoReport::DirectInput ? stdout : stderr;
    std::fputs("\nGetInfo error\n", report);
    std::fflush(report);
    // Which file and why, so the report is more than a word.
    if (!why.empty()) std::fprintf(stderr, "%s\n", escapeControls(why).c_str());
    std::fputs(which == GetInfoReport::FullMemoryS32 ? "> " : "\n> ", stderr);
    std::fflush(stderr);
}
