#include "decode/dsd_filters.h"

#include <cmath>

namespace {

double besselI0(double x) {
    double sum = 1, term = 1;
    for (int k = 1; k < 200 && term > 1e-21 * sum; ++k) {
        term *= (x / (2.0 * k)) * (x / (2.0 * k));
        sum += term;
    }
    return sum;
}

double kaiserBeta(double a) {
    if (a > 50) return 0.1102 * (a - 8.7);
    if (a > 21) return 0.5842 * std::pow(a - 21, 0.4) + 0.07886 * (a - 21);
    return 0;
}

}  // namespace

int dsdHalfLength(double transition, double attenuationDb) {
    double n = (attenuationDb - 8.0) / (2.285 * 2.0 * M_PI * transition);
    return static_cast<int>(std::ceil(n / 2.0));
}

std::vector<double> dsdLowPass(int half, double cutoff, double attenuationDb) {
    std::vector<double> h(2 * half + 1);
    double beta = kaiserBeta(attenuationDb), norm = besselI0(beta), sum = 0;
    for (int n = -half; n <= half; ++n) {
        double x = 2.0 * M_PI * cutoff * n;
        double sinc = n == 0 ? 2.0 * cutoff : std::sin(x) / (M_PI * n);
        double r = double(n) / (half + 1);
        double w = besselI0(beta * std::sqrt(std::max(0.0, 1.0 - r * r))) / norm;
        h[n + half] = sinc * w;
        sum += h[n + half];
    }
    for (double& v : h) v /= sum;
    return h;
}
