#pragma once
// The statistics and the table every part of the benchmark prints: medians with their spread over
// repetitions, one aligned row per figure.
#include <string>
#include <vector>

namespace vantrel::bench {

struct Summary {
    double median = 0, lo = 0, hi = 0;
};

double quantile(std::vector<double> v, double q);
Summary summarize(const std::vector<double>& v);

std::string fmt(double v, int decimals = 0);
// "median [min..max]"
std::string fmtSummary(const std::vector<double>& v, int decimals = 0);
void row(const std::string& what, const std::string& frame, const std::string& raw, const std::string& ratio,
         const std::string& target);
std::string verdict(bool met);

// The ratio of each frame repetition to the raw one right after it: drift over the run cancels out.
std::vector<double> ratiosOf(const std::vector<double>& frame, const std::vector<double>& raw);
// Their median [min..max].
std::string pairRatios(const std::vector<double>& frame, const std::vector<double>& raw);

}  // namespace vantrel::bench
