#include "control/shown_text.h"

namespace {

void appendHex(std::string& out, unsigned char byte) {
    static const char kDigits[] = "0123456789abcdef";
    out += "\\x";
    out += kDigits[byte >> 4];
    out += kDigits[byte & 15];
}

}  // namespace

std::string escapeControls(const std::string& text) {
    std::string out;
    out.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
        if (byte < 0x20 || byte == 0x7f) {
            appendHex(out, byte);
        } else if (byte == 0xc2 && next >= 0x80 && next <= 0x9f) {
            // U+0080..U+009F: terminals take some of them (CSI) like ESC [.
            appendHex(out, byte);
            appendHex(out, next);
            ++i;
        } else {
            out += static_cast<char>(byte);
        }
    }
    return out;
}
