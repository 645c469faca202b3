// Sound device selection: which formats "default" takes, and which card is
// the default device. Main thread only.
#pragma once
#include <string>
#include <vector>

// True when "default" accepts the ALSA format code with RW interleaved access.
// Opens and closes the device; installs nothing; prints nothing.
bool probeOutputFormat(int formatCode);
// The sample formats "default" takes, by name, for a message; empty when it
// cannot be opened.
std::string cardFormatsText();

extern std::vector<std::string> soundCardIds;
extern std::vector<std::string> soundCardDescriptions;

bool isKnownSoundCard(const std::string& id);
// Lists the cards, reads a number from stdin, rewrites the asound.conf file.
// Never blocks or spins on a closed or exhausted input.
bool selectSoundCard();

// Seams: where the configuration is written, and where the device-name hints
// come from (null: ALSA's own snd_device_name_hint over "pcm").
struct NameHint {
    std::string name;  // the NAME hint ("" when absent)
    std::string desc;  // the DESC hint
    bool hasDesc = false;
};
struct DeviceSeams {
    std::string asoundConfPath = "/etc/asound.conf";
    bool (*nameHints)(std::vector<NameHint>& out) = nullptr;
};
extern DeviceSeams deviceSeams;

// The bytes of the configuration written for a chosen entry.
std::string asoundConfText(const std::string& entry);

// Points the device and tuning seams at a test sandbox folder: the card
// selection writes <dir>/asound.conf, the core sweep walks <dir>/proc/ and
// appends "tid cpu,cpu,..." lines to <dir>/affinity.log instead of calling,
// and real-time scheduling and memory locking are skipped and recorded in
// <dir>/tuning.log. Main thread, once at start-up, before any other call here.
void applySandbox(const char* dir);
