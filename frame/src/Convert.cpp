#include "vantrel/frame/Convert.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "kelva/utils/System.h"

namespace vantrel::frame {

void refuse(const char* where, const std::string& what) {
    throw std::invalid_argument(std::string(where) + ": " + what + "; nothing was sent");
}

std::string stringOverBound(std::size_t size, std::size_t bound) {
    return "string of " + std::to_string(size) + " characters exceeds its bound of " + std::to_string(bound);
}

std::string sequenceOverBound(std::size_t size, std::size_t bound) {
    return (bound == 1 ? "optional holds " : "list holds ") + std::to_string(size) + " elements, at most " +
           std::to_string(bound);
}

namespace {

// A stack of memory blocks: memory is taken at the top and given back by returning to an earlier mark.
// Blocks beyond the top are free and kept for the next message.
class ScratchArena {
public:
    void mark(std::size_t& block, std::size_t& offset) const {
        block = m_current;
        offset = m_offset;
    }

    void* take(std::size_t bytes, std::size_t alignment) {
        if (!m_blocks.empty()) {
            const std::size_t start = (m_offset + alignment - 1) / alignment * alignment;
            if (start + bytes <= m_blocks[m_current].size) return use(m_current, start, bytes);
        }
        const std::size_t next = m_blocks.empty() ? 0 : m_current + 1;
        if (next < m_blocks.size() && m_blocks[next].size < bytes) {
            m_blocks.erase(m_blocks.begin() + static_cast<std::ptrdiff_t>(next), m_blocks.end());  // all free, too small
        }
        if (next == m_blocks.size()) {
            const std::size_t size = std::max(bytes, m_blocks.empty() ? kFirstBlock : 2 * m_blocks.back().size);
            m_blocks.push_back({std::unique_ptr<unsigned char[]>(new unsigned char[size]), size});
        }
        return use(next, 0, bytes);
    }

    void release(std::size_t block, std::size_t offset) {
        m_current = block;
        m_offset = offset;
        // A message far larger than usual does not leave its memory with the thread for good.
        if (block == 0 && offset == 0 && held() > kKeepAtMost) m_blocks.clear();
    }

private:
    static constexpr std::size_t kFirstBlock = 16 * 1024;
    static constexpr std::size_t kKeepAtMost = 4 * 1024 * 1024;

    struct Block {
        std::unique_ptr<unsigned char[]> data;
        std::size_t size;
    };

    void* use(std::size_t block, std::size_t start, std::size_t bytes) {
        m_current = block;
        m_offset = start + bytes;
        unsigned char* p = m_blocks[block].data.get() + start;
        std::memset(p, 0, bytes);
        return p;
    }

    std::size_t held() const {
        std::size_t total = 0;
        for (const auto& b : m_blocks) total += b.size;
        return total;
    }

    std::vector<Block> m_blocks;
    std::size_t m_current = 0;
    std::size_t m_offset = 0;
};

ScratchArena& arena() {
    // A plain pointer per thread (nothing for the runtime to destroy); the arena goes when the thread ends.
    thread_local ScratchArena* instance = nullptr;
    if (!instance) {
        auto created = std::make_unique<ScratchArena>();
        kelva::utils::system::atThreadExit([](void* arena) { delete static_cast<ScratchArena*>(arena); },
                                           created.get());
        instance = created.release();
    }
    return *instance;
}

}  // namespace

Scratch::Scratch() noexcept { arena().mark(m_block, m_offset); }

Scratch::~Scratch() { arena().release(m_block, m_offset); }

void* Scratch::take(std::size_t bytes, std::size_t alignment) { return arena().take(bytes, alignment); }

}  // namespace vantrel::frame
