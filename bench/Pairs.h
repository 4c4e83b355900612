#pragma once

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <vector>

/// Times of two ways that take turns, so that other work on the machine meets both alike. The first
/// and the second of a pair change places each time.
class Pairs {
public:
    /// @return which way is next: 0 or 1. @param turn  from 0 on; below that it doesn't count
    static int next(int turn) { return ((turn + 4) / 2 + turn + 4) % 2; }

    void add(int turn, std::chrono::duration<double, std::milli> time) {
        if (turn >= 0)
            m_times[next(turn)].push_back(time.count());
    }

    /// The median ratio of the second way to the first, the interval of 95 % about it, and the
    /// medians of both.
    void print(const char* name) const {
        std::vector<double> ratios;
        for (std::size_t i = 0; i < m_times[1].size(); ++i)
            ratios.push_back(m_times[1][i] / m_times[0][i]);
        const double half = 0.98 * std::sqrt(static_cast<double>(ratios.size())) /
                            static_cast<double>(ratios.size());
        std::printf("%s\t%.4f\t%.4f\t%.4f\t%.3f\t%.3f\n", name, at(ratios, 0.5),
                    at(ratios, 0.5 - half), at(ratios, 0.5 + half), at(m_times[0], 0.5),
                    at(m_times[1], 0.5));
        std::fflush(stdout);
    }

private:
    static double at(std::vector<double> values, double part) {
        std::sort(values.begin(), values.end());
        const auto last = static_cast<double>(values.size() - 1);
        return values[static_cast<std::size_t>(std::lround(std::clamp(part, 0.0, 1.0) * last))];
    }

    std::vector<double> m_times[2];
};
