// Suggestions for a name that matched nothing: the catalogue's names within a few edits of it.
#include <algorithm>
#include <cctype>

#include "vantrel/catalog/Catalog.h"

namespace vantrel::catalog {

namespace {

// Edit distance in half edits: inserting, deleting or replacing a character costs 2, a change of letter
// case only 1 ("m_alert" is nearer to "M_Alert" than "M_Blert" is).
std::size_t distance(const std::string& a, const std::string& b) {
    std::vector<std::size_t> row(b.size() + 1);
    for (std::size_t j = 0; j <= b.size(); ++j) row[j] = 2 * j;
    for (std::size_t i = 1; i <= a.size(); ++i) {
        std::size_t diagonal = row[0];
        row[0] = 2 * i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            const char x = a[i - 1], y = b[j - 1];
            const std::size_t change =
                x == y ? 0 : std::tolower(static_cast<unsigned char>(x)) == std::tolower(static_cast<unsigned char>(y)) ? 1 : 2;
            const std::size_t next = std::min({row[j] + 2, row[j - 1] + 2, diagonal + change});
            diagonal = row[j];
            row[j] = next;
        }
    }
    return row[b.size()];
}

bool isGlob(const std::string& text) { return text.find_first_of("*?") != std::string::npos; }

std::vector<std::string> candidatesFor(const std::string& name) {
    std::vector<std::string> out;
    const auto dots = std::count(name.begin(), name.end(), '.');
    for (const ModuleInfo* m : modules()) {
        if (dots == 0) {
            out.emplace_back(m->name);
            continue;
        }
        for (uint32_t i = 0; i < m->operationCount; ++i) {
            const OperationInfo& op = m->operations[i];
            out.push_back(dots == 1 ? std::string(m->name) + "." + op.name : op.qualifiedName());
        }
    }
    return out;
}

std::vector<std::string> nearest(const std::string& name, std::size_t limit) {
    // Up to a third of the name's length in edits, at least two: "M_Alrt" finds "M_Alert", "Foo" nothing.
    const std::size_t reach = 2 * std::max<std::size_t>(2, name.size() / 3);
    std::vector<std::pair<std::size_t, std::string>> scored;
    for (auto& candidate : candidatesFor(name)) {
        const std::size_t d = distance(name, candidate);
        if (d <= reach) scored.emplace_back(d, std::move(candidate));
    }
    std::stable_sort(scored.begin(), scored.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
    std::vector<std::string> out;
    for (std::size_t i = 0; i < scored.size() && out.size() < limit; ++i) out.push_back(std::move(scored[i].second));
    return out;
}

}  // namespace

std::vector<std::string> nearestNames(const std::string& name, std::size_t limit) {
    if (!isGlob(name)) return nearest(name, limit);
    // A glob whose module part names no module ("M_Alrt.*"): the same glob over the nearest modules.
    const std::string module = name.substr(0, name.find('.'));
    if (module.size() == name.size() || isGlob(module) || findModule(module)) return {};
    std::vector<std::string> out;
    for (const auto& near : nearest(module, limit)) out.push_back(near + name.substr(module.size()));
    return out;
}

}  // namespace vantrel::catalog
