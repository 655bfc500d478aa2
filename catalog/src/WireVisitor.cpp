#include "vantrel/catalog/WireVisitor.h"

#include <vector>

#include "vantrel/frame/Convert.h"

namespace vantrel::catalog {

std::string WirePath::text() const {
    std::vector<const WirePath*> chain;
    for (const WirePath* p = this; p; p = p->parent) chain.push_back(p);
    std::string where;
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
        if ((*it)->member) {
            if (*(*it)->member) where += (where.empty() ? "" : ".") + std::string((*it)->member);
        } else {
            where += "[" + std::to_string((*it)->index) + "]";
        }
    }
    return where;
}

std::string nulInString() { return "contains a NUL character, which the wire cannot carry"; }

std::string wireStringOverBound(std::size_t size, std::size_t bound) { return frame::stringOverBound(size, bound); }

std::string wireSequenceOverBound(std::size_t size, std::size_t bound) { return frame::sequenceOverBound(size, bound); }

}  // namespace vantrel::catalog
