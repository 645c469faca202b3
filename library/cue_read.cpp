// Reading a sheet's lines as UTF-8. A UTF-8 or UTF-16 byte-order mark in the
// first bytes decides; without one the text itself (sheetCharset).
#include <glib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "library/cue.h"
#include "settings/safe_file.h"

namespace {

enum class SheetEncoding { Utf8, Utf16Le, Utf16Be, Unmarked };

constexpr size_t kMaxLineBytes = 4095;  // a 4096-byte line buffer with its NUL
constexpr size_t kMaxSheetBytes = 1 << 20;

struct FileCloser {
    void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

struct GFree {
    void operator()(gchar* p) const { g_free(p); }
};
using GText = std::unique_ptr<gchar, GFree>;

SheetEncoding encodingFromMark(const unsigned char* head, size_t count) {
    if (count < 2) return SheetEncoding::Unmarked;
    if (head[0] == 0xEF && head[1] == 0xBB) return SheetEncoding::Utf8;
    if (head[0] == 0xFF && head[1] == 0xFE) return SheetEncoding::Utf16Le;
    if (head[0] == 0xFE && head[1] == 0xFF) return SheetEncoding::Utf16Be;
    return SheetEncoding::Unmarked;
}

// Text up to its first zero byte: lines are handled as C strings.
std::string upToZero(const char* text, size_t length) {
    std::string s(text, length);
    return s.substr(0, s.find('\0'));
}

// Converts to UTF-8; a line that does not convert is kept as it was read.
// The reason of a failure is never used, so none is asked for.
std::string convertLine(const std::string& bytes, const char* fromCharset) {
    gsize read = 0;
    gsize written = 0;
    GText out(g_convert(bytes.data(), static_cast<gssize>(bytes.size()), "UTF-8", fromCharset,
                        &read, &written, nullptr));
    if (!out) return upToZero(bytes.data(), bytes.size());
    return upToZero(out.get(), written);
}

// Reads one line of at most kMaxLineBytes bytes into line, consuming its line
// feed. Returns false when reading must stop after this line: end of file, a
// read error, or a line too long for the buffer (the rest is never read).
bool readByteLine(std::FILE* file, std::string& line) {
    line.clear();
    for (;;) {
        int c = std::getc(file);
        if (c == EOF) return false;
        if (c == '\n') return true;
        if (line.size() == kMaxLineBytes) return false;
        line.push_back(static_cast<char>(c));
    }
}

// The line in progress is stored before the end is noticed, so a final line
// feed yields a final empty line and an empty file yields one empty line.
void readByteLines(std::FILE* file, bool guess, std::vector<std::string>& lines) {
    std::string raw;
    std::vector<std::string> read;
    bool more = true;
    while (more) {
        more = readByteLine(file, raw);
        std::string line = upToZero(raw.data(), raw.size());
        if (!line.empty() && line.back() == '\r') line.pop_back();
        read.push_back(line);
    }
    const std::string charset = guess ? sheetCharset(read) : "UTF-8";
    for (const std::string& line : read)
        lines.push_back(charset == "UTF-8" ? line : convertLine(line, charset.c_str()));
}

// Only a carriage return right before a line feed goes; the last line, which
// has none, keeps a final one.
void appendUtf16Line(std::string& units, bool bigEndian, bool atLineFeed,
                     std::vector<std::string>& lines) {
    size_t n = units.size();
    bool crLast = atLineFeed && n >= 2 &&
                  (bigEndian ? units[n - 2] == 0 && units[n - 1] == '\r'
                             : units[n - 2] == '\r' && units[n - 1] == 0);
    if (crLast) units.resize(n - 2);
    // Little-endian lines go to "UTF-16" without a mark, which glibc reads in
    // the machine's (little-endian) order.
    lines.push_back(convertLine(units, bigEndian ? "UTF-16BE" : "UTF-16"));
    units.clear();
}

// Lines are kept whole whatever their length. A lone byte at the very end is
// not a code unit and is ignored.
void readUtf16Lines(std::FILE* file, bool bigEndian, std::vector<std::string>& lines) {
    std::string units;
    unsigned char pair[2];
    while (std::fread(pair, 1, 2, file) == 2) {
        unsigned unit = bigEndian ? (pair[0] << 8 | pair[1]) : (pair[1] << 8 | pair[0]);
        if (unit == 0x000A) {
            appendUtf16Line(units, bigEndian, true, lines);
        } else {
            units.append(reinterpret_cast<const char*>(pair), 2);
        }
    }
    appendUtf16Line(units, bigEndian, false, lines);
}

// The whole sheet, read with one bound: a FIFO or device named like a sheet
// is refused before it could block, and a file past kMaxSheetBytes is
// refused without reading it (real sheets are a few kilobytes).
bool readSheetBytes(const std::string& path, std::string& text) {
    std::string why;
    off_t size = 0;
    int fd = openRegularFile(path.c_str(), why, &size);
    const int openError = errno;
    if (fd >= 0 && size > off_t(kMaxSheetBytes)) {
        why = "sheet larger than 1 MiB, not read";
    } else if (fd >= 0) {
        text.resize(kMaxSheetBytes + 1);
        size_t got = 0;
        while (got < text.size()) {
            ssize_t n = read(fd, text.data() + got, text.size() - got);
            if (n < 0 && errno == EINTR) continue;
            if (n <= 0) break;
            got += size_t(n);
        }
        text.resize(got);
        // It may have grown since it was measured.
        if (got > kMaxSheetBytes) why = "sheet larger than 1 MiB, not read";
    }
    if (fd >= 0) close(fd);
    if (why.empty()) return true;
    if (fd < 0 && openError == ENOENT) return false;  // gone since the listing: as before, silent
    std::fprintf(stderr, "%s: %s\n", path.c_str(), why.c_str());
    std::fflush(stderr);
    return false;
}

}  // namespace

void readCueLines(const std::string& path, std::vector<std::string>& lines) {
    std::string text;
    if (!readSheetBytes(path, text)) return;
    File file(fmemopen(text.data(), text.size(), "rb"));
    if (!file) return;
    unsigned char head[4];
    size_t count = std::fread(head, 1, sizeof head, file.get());
    SheetEncoding encoding = encodingFromMark(head, count);
    std::rewind(file.get());

    switch (encoding) {
        case SheetEncoding::Utf8:
            // The third mark byte is skipped unseen; a file of just EF BB
            // still gives its one empty line.
            for (int i = 0; i < 3; ++i) std::getc(file.get());
            readByteLines(file.get(), false, lines);
            break;
        case SheetEncoding::Unmarked:
            readByteLines(file.get(), true, lines);
            break;
        case SheetEncoding::Utf16Le:
        case SheetEncoding::Utf16Be:
            std::fseek(file.get(), 2, SEEK_SET);
            readUtf16Lines(file.get(), encoding == SheetEncoding::Utf16Be, lines);
            break;
    }
}
