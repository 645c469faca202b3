// The encoding of a sheet without a byte-order mark: UTF-8 when the bytes are
// valid UTF-8 (what rippers and editors write today), else what uchardet
// names among the single- and multi-byte sets rippers use, else CP1251.
#include <glib.h>
#include <uchardet/uchardet.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "library/cue.h"

namespace {

struct DetectorFree {
    void operator()(uchardet_t d) const { uchardet_delete(d); }
};

// The sets a sheet is written in around the world. uchardet also names rarer
// ones (and guesses wildly on short text); those fall back to CP1251.
constexpr const char* kKnown[] = {"WINDOWS-1251", "WINDOWS-1252", "ISO-8859-1", "ISO-8859-15",
                                  "GB18030",      "GBK",          "GB2312",     "SHIFT_JIS",
                                  "BIG5",         "KOI8-R",       "EUC-JP",     "EUC-KR",
                                  "WINDOWS-1250", "ISO-8859-2",   "IBM866",     "UHC"};

}  // namespace

std::string sheetCharset(const std::vector<std::string>& rawLines) {
    std::string text;
    for (const std::string& line : rawLines) text += line + "\n";
    if (g_utf8_validate(text.data(), gssize(text.size()), nullptr)) return "UTF-8";
    std::unique_ptr<uchardet, DetectorFree> detector(uchardet_new());
    if (!detector || uchardet_handle_data(detector.get(), text.data(), text.size()) != 0)
        return "CP1251";
    uchardet_data_end(detector.get());
    const char* name = uchardet_get_charset(detector.get());
    for (const char* known : kKnown)
        if (name && g_ascii_strcasecmp(name, known) == 0) return known;
    return "CP1251";
}
