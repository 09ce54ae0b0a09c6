#include "DspTestSupport.h"

#include <cerrno>
#include <cmath>
#include <complex>
#include <cstddef>

namespace DspTest {

namespace {
constexpr double Pi = 3.14159265358979323846;

void fft(std::vector<std::complex<double>> &a)
{
    const size_t n = a.size();
    for (size_t i = 1, j = 0; i < n; ++i) {
        size_t bit = n >> 1;
        for (; j & bit; bit >>= 1)
            j ^= bit;
        j ^= bit;
        if (i < j)
            std::swap(a[i], a[j]);
    }
    for (size_t len = 2; len <= n; len <<= 1) {
        const std::complex<double> w = std::polar(1.0, -2.0 * Pi / double(len));
        for (size_t i = 0; i < n; i += len) {
            std::complex<double> wn = 1.0;
            for (size_t k = 0; k < len / 2; ++k, wn *= w) {
                const auto u = a[i + k], v = a[i + k + len / 2] * wn;
                a[i + k] = u + v;
                a[i + k + len / 2] = u - v;
            }
        }
    }
}
} // namespace

double amplitude(const float *samples, size_t count, double rate, double frequency)
{
    // Recurrence on the phasor in double precision, renormalised to stay on the unit circle.
    std::complex<double> sum = 0.0, w = 1.0;
    const std::complex<double> step = std::polar(1.0, -2.0 * Pi * frequency / rate);
    for (size_t i = 0; i < count; ++i) {
        sum += double(samples[i]) * w;
        w *= step;
        if ((i & 1023) == 1023)
            w /= std::abs(w);
    }
    return 2.0 * std::abs(sum) / double(count);
}

double toDb(double ratio) { return 20.0 * std::log10(std::max(ratio, 1e-30)); }

double bandPower(const std::vector<double> &samples, double rate, double from, double to)
{
    constexpr size_t N = 4096;
    std::vector<double> power(N / 2 + 1, 0.0);
    std::vector<std::complex<double>> buf(N);
    size_t segments = 0;
    for (size_t start = 0; start + N <= samples.size(); start += N / 2, ++segments) {
        for (size_t i = 0; i < N; ++i)
            buf[i] = samples[start + i] * (0.5 - 0.5 * std::cos(2.0 * Pi * double(i) / N));
        fft(buf);
        for (size_t k = 0; k <= N / 2; ++k)
            power[k] += std::norm(buf[k]);
    }
    double sum = 0.0;
    for (size_t k = 0; k <= N / 2; ++k) {
        const double f = double(k) * rate / N;
        if (f >= from && f < to)
            sum += power[k];
    }
    return segments ? sum / double(segments) : 0.0;
}

double MultiTone::at(long long index) const
{
    double v = 0.0;
    for (double f : frequencies) {
        // Reduce the phase exactly for whole-number frequencies and rates.
        const long long cycles = (long long)std::llround(f) * index % (long long)std::llround(rate);
        v += amplitude * std::sin(2.0 * Pi * double(cycles) / rate);
    }
    return v;
}

void MultiTone::fill(VEKAudioBufferList &list)
{
    for (quint32 i = 0; i < list.frames(); ++i) {
        const float v = float(at(position + i));
        for (quint32 c = 0; c < list.numberOfChannels(); ++c)
            list.channel(c)[i] = v;
    }
    position += list.frames();
}

} // namespace DspTest

// Allocation counting by taking over the C allocator's entry points and forwarding them to
// glibc's own. Not in sanitizer builds, whose runtime provides these itself.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
namespace DspTest {
bool AllocationCounter::available() { return false; }
void AllocationCounter::start() {}
long AllocationCounter::stop() { return 0; }
} // namespace DspTest
#else
extern "C" {
void *__libc_malloc(size_t);
void __libc_free(void *);
void *__libc_calloc(size_t, size_t);
void *__libc_realloc(void *, size_t);
void *__libc_memalign(size_t, size_t);
}

namespace {
thread_local bool t_counting = false;
thread_local long t_count = 0;
inline void note()
{
    if (t_counting)
        ++t_count;
}
} // namespace

extern "C" {
void *malloc(size_t n)
{
    note();
    return __libc_malloc(n);
}
void free(void *p)
{
    if (p)
        note();
    __libc_free(p);
}
void *calloc(size_t n, size_t s)
{
    note();
    return __libc_calloc(n, s);
}
void *realloc(void *p, size_t n)
{
    note();
    return __libc_realloc(p, n);
}
void *memalign(size_t a, size_t n)
{
    note();
    return __libc_memalign(a, n);
}
void *aligned_alloc(size_t a, size_t n)
{
    note();
    return __libc_memalign(a, n);
}
int posix_memalign(void **out, size_t a, size_t n)
{
    note();
    *out = __libc_memalign(a, n);
    return *out ? 0 : ENOMEM;
}
}

namespace DspTest {
bool AllocationCounter::available() { return true; }
void AllocationCounter::start()
{
    t_count = 0;
    t_counting = true;
}
long AllocationCounter::stop()
{
    t_counting = false;
    return t_count;
}
} // namespace DspTest
#endif
