#include "Table.h"

#include <algorithm>
#include <cstdio>

namespace vantrel::bench {

double quantile(std::vector<double> v, double q) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const double pos = q * static_cast<double>(v.size() - 1);
    const auto i = static_cast<std::size_t>(pos);
    const double frac = pos - static_cast<double>(i);
    return i + 1 < v.size() ? v[i] * (1 - frac) + v[i + 1] * frac : v[i];
}

Summary summarize(const std::vector<double>& v) {
    if (v.empty()) return {};
    return {quantile(v, 0.5), *std::min_element(v.begin(), v.end()), *std::max_element(v.begin(), v.end())};
}

std::string fmt(double v, int decimals) {
    char b[64];
    std::snprintf(b, sizeof b, "%.*f", decimals, v);
    return b;
}

std::string fmtSummary(const std::vector<double>& v, int decimals) {
    const Summary s = summarize(v);
    return fmt(s.median, decimals) + " [" + fmt(s.lo, decimals) + ".." + fmt(s.hi, decimals) + "]";
}

void row(const std::string& what, const std::string& frame, const std::string& raw, const std::string& ratio,
         const std::string& target) {
    std::printf("| %-44s | %-28s | %-28s | %-18s | %-20s |\n", what.c_str(), frame.c_str(), raw.c_str(), ratio.c_str(),
                target.c_str());
    std::fflush(stdout);
}

std::string verdict(bool met) { return met ? "met" : "MISSED"; }

std::vector<double> ratiosOf(const std::vector<double>& frame, const std::vector<double>& raw) {
    std::vector<double> ratios;
    for (std::size_t i = 0; i < frame.size() && i < raw.size(); ++i) ratios.push_back(frame[i] / raw[i]);
    return ratios;
}

std::string pairRatios(const std::vector<double>& frame, const std::vector<double>& raw) {
    return fmtSummary(ratiosOf(frame, raw), 2);
}

}  // namespace vantrel::bench
