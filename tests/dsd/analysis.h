// Power per bin (0 .. n/2) of a power-of-two block under a 7-term
// Blackman-Harris window (sidelobes near -180 dB), scaled so that a sine of
// amplitude A sums to A^2 / 2 over its main lobe.
#pragma once
#include <vector>

std::vector<double> powerSpectrum(const std::vector<double>& x);
