// Independent double-precision models of the transforms, written straight
// from their definitions, and helpers shared by the transform tests.
#pragma once

#include <cmath>
#include <complex>
#include <cstdint>
#include <cstdio>
#include <string>
#include <memory>
#include <random>
#include <vector>

namespace nkptest {

using cd = std::complex<double>;
constexpr double kPi = 3.14159265358979323846;

// X[k] = sum x[n] e^(sign 2 pi i nk/L), by direct summation.
inline std::vector<cd> dft_direct(const std::vector<cd>& x, int sign = -1) {
    const size_t L = x.size();
    std::vector<cd> X(L);
    for (size_t k = 0; k < L; ++k) {
        cd acc = 0;
        for (size_t n = 0; n < L; ++n) {
            const double a = sign * 2.0 * kPi * static_cast<double>((n * k) % L) / static_cast<double>(L);
            acc += x[n] * cd(std::cos(a), std::sin(a));
        }
        X[k] = acc;
    }
    return X;
}

// The same by recursive radix-2 splitting, for lengths too large to sum.
inline void fft_recursive(std::vector<cd>& x) {
    const size_t L = x.size();
    if (L == 1) return;
    std::vector<cd> e(L / 2), o(L / 2);
    for (size_t i = 0; i < L / 2; ++i) e[i] = x[2 * i], o[i] = x[2 * i + 1];
    fft_recursive(e);
    fft_recursive(o);
    for (size_t k = 0; k < L / 2; ++k) {
        const double a = -2.0 * kPi * static_cast<double>(k) / static_cast<double>(L);
        const cd t = cd(std::cos(a), std::sin(a)) * o[k];
        x[k] = e[k] + t;
        x[k + L / 2] = e[k] - t;
    }
}

inline std::vector<cd> dft_reference(const std::vector<cd>& x) {
    if (x.size() <= 4096) return dft_direct(x);
    std::vector<cd> y = x;
    fft_recursive(y);
    return y;
}

// phi(n,k) = (2 pi/N)(n + 1/2 + N/4)(k + 1/2).
inline double mdct_phi(int N, int n, int k) {
    return 2.0 * kPi / N * (n + 0.5 + N / 4.0) * (k + 0.5);
}

// X[k] = 2 sum_n x[n] cos phi(n,k).
template <class T>
std::vector<double> mdct_forward_direct(const std::vector<T>& x) {
    const int N = static_cast<int>(x.size());
    std::vector<double> X(N / 2);
    for (int k = 0; k < N / 2; ++k) {
        double acc = 0;
        for (int n = 0; n < N; ++n) acc += static_cast<double>(x[n]) * std::cos(mdct_phi(N, n, k));
        X[k] = 2.0 * acc;
    }
    return X;
}

// y[n] = (2/N) sum_k X[k] cos phi(n,k).
inline std::vector<double> mdct_inverse_direct(const std::vector<float>& X) {
    const int N = static_cast<int>(X.size()) * 2;
    std::vector<double> y(N);
    for (int n = 0; n < N; ++n) {
        double acc = 0;
        for (int k = 0; k < N / 2; ++k) acc += static_cast<double>(X[k]) * std::cos(mdct_phi(N, n, k));
        y[n] = 2.0 / N * acc;
    }
    return y;
}

// max |got - want| / max |want|: the error relative to the signal's peak.
template <class A, class B>
double peak_relative_error(const A& got, const B& want, size_t n) {
    double err = 0, peak = 0;
    for (size_t i = 0; i < n; ++i) {
        err = std::max(err, std::abs(static_cast<double>(got[i]) - static_cast<double>(want[i])));
        peak = std::max(peak, std::abs(static_cast<double>(want[i])));
    }
    return peak > 0 ? err / peak : err;
}

// A measured error as text for the test report.
inline std::string sci(double v) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%.3e", v);
    return buf;
}

inline std::vector<float> random_floats(size_t n, uint32_t seed, float lo = -1.0f, float hi = 1.0f) {
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> d(lo, hi);
    std::vector<float> v(n);
    for (auto& x : v) x = d(rng);
    return v;
}

// `bytes` usable bytes at `offset` bytes into a heap block that ends right
// after them: any use beyond the reported size is caught by the sanitizer,
// and offsets 0..63 cover every alignment.
struct SizedBuffer {
    std::unique_ptr<uint8_t[]> block;
    uint8_t* p = nullptr;
    explicit SizedBuffer(int bytes, int offset = 0)
        : block(new uint8_t[static_cast<size_t>(bytes + offset > 0 ? bytes + offset : 1)]()), p(block.get() + offset) {}
};

}  // namespace nkptest
