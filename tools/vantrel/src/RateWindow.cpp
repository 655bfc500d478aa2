#include "vantrel/tool/RateWindow.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>

namespace vantrel::tool {

RateFigures RateWindow::measure(Clock::time_point now, double window) {
    std::lock_guard<std::mutex> lock(m_mutex);
    const auto horizon = now - std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(window));
    while (!m_window.empty() && m_window.front().time < horizon) m_window.pop_front();
    RateFigures f;
    f.samples = m_window.size();
    if (f.samples < 2) return f;
    const double span = std::chrono::duration<double>(m_window.back().time - m_window.front().time).count();
    double sumGap = 0, sumSq = 0, bytes = 0;
    f.minGap = 1e300;
    f.minBytes = 1e300;
    for (std::size_t i = 0; i < f.samples; ++i) {
        const double b = m_window[i].bytes;
        bytes += b;
        f.minBytes = std::min(f.minBytes, b);
        f.maxBytes = std::max(f.maxBytes, b);
        if (i == 0) continue;
        const double gap = std::chrono::duration<double>(m_window[i].time - m_window[i - 1].time).count();
        sumGap += gap;
        sumSq += gap * gap;
        f.minGap = std::min(f.minGap, gap);
        f.maxGap = std::max(f.maxGap, gap);
    }
    const double gaps = static_cast<double>(f.samples - 1);
    f.hz = span > 0 ? gaps / span : 0;
    const double mean = sumGap / gaps;
    f.stdGap = std::sqrt(std::max(0.0, sumSq / gaps - mean * mean));
    f.meanBytes = bytes / static_cast<double>(f.samples);
    // The bytes of the samples after the first arrived over the span.
    f.bytesPerSecond = span > 0 ? (bytes - m_window.front().bytes) / span : 0;
    return f;
}

std::string sizeText(double bytes) {
    std::ostringstream out;
    out << std::fixed << std::setprecision(2);
    if (bytes >= 1e6) out << bytes / 1e6 << " MB";
    else if (bytes >= 1e3) out << bytes / 1e3 << " kB";
    else out << bytes << " B";
    return out.str();
}

}  // namespace vantrel::tool
