// Card selection: list the ALSA devices, ask for one, make it the hw default.
#include <alsa/asoundlib.h>
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>
#include <limits>

#include "device/device.h"

std::vector<std::string> soundCardIds;
std::vector<std::string> soundCardDescriptions;
DeviceSeams deviceSeams;

namespace {

constexpr const char* kNotFound = "\nERROR: Not found sound devices!\n";

bool alsaNameHints(std::vector<NameHint>& out) {
    void** hints = nullptr;
    if (snd_device_name_hint(-1, "pcm", &hints) < 0) return false;
    for (void** h = hints; *h; ++h) {
        NameHint hint;
        if (char* name = snd_device_name_get_hint(*h, "NAME")) {
            hint.name = name;
            free(name);
        }
        if (char* desc = snd_device_name_get_hint(*h, "DESC")) {
            hint.desc = desc;
            hint.hasDesc = true;
            free(desc);
        }
        out.push_back(std::move(hint));
    }
    snd_device_name_free_hint(hints);
    return true;
}

void collectCards() {
    std::vector<NameHint> hints;
    bool ok = deviceSeams.nameHints ? deviceSeams.nameHints(hints) : alsaNameHints(hints);
    if (!ok) return;
    for (const NameHint& hint : hints) {
        size_t at = hint.name.find("CARD=");
        if (hint.name.empty() || at == std::string::npos) continue;
        std::string id = hint.name.substr(at + 5);
        if (isKnownSoundCard(id)) continue;
        soundCardIds.push_back(id);
        printf("%s\n", hint.name.c_str());
        std::string desc;
        if (hint.hasDesc) {
            desc = hint.desc.substr(0, hint.desc.find('\n'));
            printf("%s\n\n", desc.c_str());
        }
        fflush(stdout);
        soundCardDescriptions.push_back(desc);
    }
}

void printChoices() {
    printf("Select Device:\n");
    for (size_t i = 0; i < soundCardIds.size(); ++i) {
        printf("%i   %s\n", static_cast<int>(i), soundCardIds[i].c_str());
        printf("%s\n\n", soundCardDescriptions[i].c_str());
    }
    printf("\nCard number>");
    fflush(stdout);
}

// The number comes from std::cin, the stream the command loop reads too.
// Returns -1 for end of input or a word that is no number.
long readChoice() {
    long n = -1;
    if (std::cin >> n) {
        std::cin.get();  // the line end after the number
        return n;
    }
    if (!std::cin.eof()) {
        // Leave the stream usable for the command loop.
        std::cin.clear();
        std::cin.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    return -1;
}

void splitEntry(const std::string& entry, std::string& card, char& device) {
    size_t dev = entry.find(",DEV=");
    card = entry.substr(0, dev);
    device = '0';
    // Only one character is taken: DEV=12 names device 1.
    if (dev != std::string::npos && dev + 5 < entry.size()) device = entry[dev + 5];
}

}  // namespace

bool isKnownSoundCard(const std::string& id) {
    for (const std::string& known : soundCardIds)
        if (known == id) return true;
    return false;
}

std::string asoundConfText(const std::string& entry) {
    std::string card;
    char device;
    splitEntry(entry, card, device);
    std::string section = "{\ntype hw\ncard " + card + "\ndevice " + device + "\n}\n";
    return "pcm.!default\n" + section + "ctl.!default\n" + section;
}

bool selectSoundCard() {
    collectCards();
    if (soundCardIds.empty()) {
        fputs(kNotFound, stderr);
        fflush(stderr);
        return false;
    }
    printChoices();
    long choice = readChoice();
    if (choice < 0 || choice >= static_cast<long>(soundCardIds.size())) {
        fputs(kNotFound, stderr);
        fflush(stderr);
        return false;
    }
    const std::string entry = soundCardIds[choice];
    int fd = creat(deviceSeams.asoundConfPath.c_str(), 0644);
    if (fd < 0) {
        // The message names the system file even when a sandbox path was tried.
        fputs("\nCan't open /etc/asound.conf\nPlease run player as root!\n", stderr);
        fflush(stderr);
        return false;
    }
    const std::string text = asoundConfText(entry);
    ssize_t ignored = write(fd, text.data(), text.size());
    (void)ignored;
    close(fd);
    std::string card;
    char device;
    splitEntry(entry, card, device);
    printf("Device: %s\n", card.c_str());
    fflush(stdout);
    return true;
}
