// vantrel recover: a recording whose recorder died (power loss, kill), rewritten as a complete,
// indexed file of every chunk and message it still holds whole; says what it kept and dropped.
#include <filesystem>
#include <iostream>

#include "SalvageText.h"
#include "vantrel/mcap/Recovery.h"
#include "vantrel/tool/Errors.h"
#include "vantrel/tool/Verbs.h"

namespace vantrel::tool {

int recover(const RecoverOptions& o) {
    std::error_code ec;
    if (std::filesystem::equivalent(o.file, o.output, ec))
        throw InputError(o.output + " is the file to recover: write the recovered one elsewhere");
    if (std::filesystem::exists(o.output) && !o.force)
        throw InputError(o.output + " exists (use --force to overwrite it)");
    mcap::Salvage s;
    try {
        s = mcap::recover(o.file, o.output);
    } catch (const mcap::McapError& e) {
        throw InputError(e.what());
    }
    std::cout << "kept:    " << salvageText(s) << "\n"
              << "dropped: " << droppedText(s) << "\n"
              << "wrote " << o.output << " (" << std::filesystem::file_size(o.output) << " bytes)" << std::endl;
    return 0;
}

}  // namespace vantrel::tool
