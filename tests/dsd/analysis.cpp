#include "tests/dsd/analysis.h"

#include <cmath>
#include <complex>

namespace {

void fft(std::vector<std::complex<double>>& a) {
    const size_t n = a.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1) j ^= bit;
        j ^= bit;
        if (i < j) std::swap(a[i], a[j]);
    }
    for (size_t len = 2; len <= n; len <<= 1)
        for (size_t i = 0; i < n; i += len)
            for (size_t k = 0; k < len / 2; ++k) {
                // Twiddles computed directly: recurrences lose the precision
                // a -170 dB floor needs.
                std::complex<double> w = std::polar(1.0, -2.0 * M_PI * double(k) / double(len));
                std::complex<double> u = a[i + k], v = a[i + k + len / 2] * w;
                a[i + k] = u + v;
                a[i + k + len / 2] = u - v;
            }
}

}  // namespace

std::vector<double> powerSpectrum(const std::vector<double>& x) {
    static const double c[] = {0.27105140069342,  -0.43329793923448, 0.21812299954311,
                               -0.06592544638803, 0.01081174209837,  -0.00077658482522,
                               0.00001388721735};
    const size_t n = x.size();
    std::vector<std::complex<double>> a(n);
    double w2 = 0;
    for (size_t i = 0; i < n; ++i) {
        double w = 0;
        for (int k = 0; k < 7; ++k) w += c[k] * std::cos(2.0 * M_PI * k * double(i) / double(n));
        a[i] = x[i] * w;
        w2 += w * w;
    }
    fft(a);
    // Parseval: one side doubled equals n times the windowed power.
    std::vector<double> p(n / 2 + 1);
    for (size_t k = 0; k <= n / 2; ++k) p[k] = std::norm(a[k]) * 2.0 / (double(n) * w2);
    return p;
}
