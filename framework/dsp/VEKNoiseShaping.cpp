#include "VEKNoiseShaping.h"

#include <algorithm>
#include <cmath>
#include <complex>

namespace {
constexpr double Pi = 3.14159265358979323846;
}

std::vector<double> VEKNoiseShaping::firstOrder() { return {-1.0}; }

std::vector<double> VEKNoiseShaping::notch(double sampleRate, double frequency)
{
    const double f = std::min(frequency, 0.2 * sampleRate);
    const double w = 2.0 * Pi * f / sampleRate;
    return {-2.0 * std::cos(w), 1.0};
}

double VEKNoiseShaping::thresholdOfHearing(double frequency)
{
    const double k = std::max(frequency, 10.0) / 1000.0;
    return 3.64 * std::pow(k, -0.8) - 6.5 * std::exp(-0.6 * (k - 3.3) * (k - 3.3)) + 1e-3 * k * k * k * k;
}

std::vector<double> VEKNoiseShaping::psychoacoustic(double sampleRate, int order, double rangeDb)
{
    if (order <= 0)
        return {};
    // The ear's sensitivity on a fine grid up to Nyquist, as a power spectrum.
    constexpr int Grid = 2048;
    std::vector<double> threshold(Grid);
    double lowest = 1e9;
    for (int j = 0; j < Grid; ++j) {
        const double f = (j + 0.5) * 0.5 * sampleRate / Grid;
        threshold[j] = thresholdOfHearing(std::max(f, 1000.0));
        lowest = std::min(lowest, threshold[j]);
    }
    std::vector<double> weight(Grid);
    for (int j = 0; j < Grid; ++j)
        weight[j] = std::pow(10.0, -(std::min(threshold[j], lowest + rangeDb) - lowest) / 10.0);

    // Its autocorrelation, then Levinson-Durbin: the prediction-error filter A minimises the
    // integral of |A|^2 times the weight, and comes out minimum phase with a leading 1.
    std::vector<double> r(size_t(order) + 1, 0.0);
    for (int k = 0; k <= order; ++k) {
        double sum = 0.0;
        for (int j = 0; j < Grid; ++j)
            sum += weight[j] * std::cos(k * Pi * (j + 0.5) / Grid);
        r[size_t(k)] = sum / Grid;
    }
    r[0] *= 1.0 + 1e-9;
    std::vector<double> a(size_t(order) + 1, 0.0), previous;
    a[0] = 1.0;
    double error = r[0];
    for (int i = 1; i <= order; ++i) {
        double acc = r[size_t(i)];
        for (int j = 1; j < i; ++j)
            acc += a[size_t(j)] * r[size_t(i - j)];
        const double k = -acc / error;
        previous = a;
        for (int j = 1; j < i; ++j)
            a[size_t(j)] = previous[size_t(j)] + k * previous[size_t(i - j)];
        a[size_t(i)] = k;
        error *= 1.0 - k * k;
    }
    return std::vector<double>(a.begin() + 1, a.end());
}

double VEKNoiseShaping::responseDb(const std::vector<double> &coefficients, double frequency, double sampleRate)
{
    const double w = 2.0 * Pi * frequency / sampleRate;
    std::complex<double> h = 1.0;
    for (size_t k = 0; k < coefficients.size(); ++k)
        h += coefficients[k] * std::polar(1.0, -w * double(k + 1));
    return 20.0 * std::log10(std::max(std::abs(h), 1e-12));
}
