// dsdgen --container dsf|dff --multiple 64|128|256|512 [--base 44100|48000]
//        --channels N --seconds S --freq HZ --level-db DB --out FILE --ref REF
// Writes a tone as DSF or DSDIFF and its DSD bits (internal form) to REF.
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "tools/dsdgen/dsdgen.h"

int main(int argc, char** argv) {
    std::map<std::string, std::string> opt = {
        {"--container", "dsf"}, {"--multiple", "64"}, {"--base", "44100"}, {"--channels", "2"},
        {"--seconds", "1"},     {"--freq", "1000"},   {"--level-db", "-6"}};
    for (int i = 1; i + 1 < argc; i += 2) opt[argv[i]] = argv[i + 1];
    if (argc % 2 == 0 || opt["--out"].empty()) {
        fprintf(stderr,
                "usage: dsdgen --container dsf|dff --multiple 64|128|256|512 "
                "[--base 44100|48000] --channels N --seconds S --freq HZ --level-db DB "
                "--out FILE [--ref REF]\n");
        return 2;
    }
    int multiple = atoi(opt["--multiple"].c_str());
    int base = atoi(opt["--base"].c_str());
    int channels = atoi(opt["--channels"].c_str());
    if ((multiple != 64 && multiple != 128 && multiple != 256 && multiple != 512) ||
        (base != 44100 && base != 48000) || channels < 1 || channels > 6) {
        fprintf(stderr,
                "dsdgen: multiple must be 64, 128, 256 or 512, base 44100 or 48000, "
                "channels 1 to 6\n");
        return 2;
    }
    dsdgen::Signal s =
        dsdgen::toneSignal(multiple, channels, atof(opt["--seconds"].c_str()),
                           atof(opt["--freq"].c_str()), atof(opt["--level-db"].c_str()), base);
    std::vector<uint8_t> dsd = dsdgen::modulate(s);
    bool dff = opt["--container"] == "dff";
    bool ok = dff ? dsdgen::writeDff(opt["--out"], dsd, channels, multiple, s.bits, base)
                  : dsdgen::writeDsf(opt["--out"], dsd, channels, multiple, s.bits, base);
    if (ok && !opt["--ref"].empty()) {
        FILE* f = fopen(opt["--ref"].c_str(), "wb");
        ok = f && fwrite(dsd.data(), 1, dsd.size(), f) == dsd.size();
        if (f) ok = fclose(f) == 0 && ok;
    }
    if (!ok) {
        fprintf(stderr, "dsdgen: cannot write %s\n", opt["--out"].c_str());
        return 1;
    }
    return 0;
}
