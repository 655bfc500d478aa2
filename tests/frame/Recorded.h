#pragma once
// Values that callbacks record on a dispatcher thread while the test reads and awaits them.
#include <cstddef>
#include <mutex>
#include <vector>

#include "vantrel/test/Support.h"

template <class T>
class Recorded {
public:
    void add(const T& value) {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_values.push_back(value);
    }
    std::vector<T> now() const {
        std::lock_guard<std::mutex> lock(m_mutex);
        return m_values;
    }
    std::size_t size() const { return now().size(); }
    // Whether exactly `n` values are recorded within the usual bound.
    bool waitSize(std::size_t n) const {
        return vantrel::test::waitUntil([&] { return size() == n; });
    }

private:
    mutable std::mutex m_mutex;
    std::vector<T> m_values;
};
