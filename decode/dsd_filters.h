// Filter design for the DSD to PCM converter: Kaiser-windowed sinc FIRs of
// odd length, symmetric about their centre (linear phase, unit DC gain).
#pragma once
#include <vector>

// Low-pass of 2 * half + 1 taps, cutoff in cycles per sample (0 .. 0.5),
// stopband attenuation about attenuationDb.
std::vector<double> dsdLowPass(int half, double cutoff, double attenuationDb);
// Taps needed on each side of the centre for a transition band of the given
// width (cycles per sample) at that attenuation.
int dsdHalfLength(double transition, double attenuationDb);
