#pragma once
// Pieces of XML text the access-control documents share.
#include <string>
#include <vector>

#include "Documents.h"

namespace vantrel::tool::security {

// Text with &, <, >, " and ' escaped.
std::string xmlEscaped(const std::string& text);
// <domains> with one <id> or <id_range> per range, each line starting with `indent`.
std::string domainsXml(const std::vector<DomainRange>& domains, const std::string& indent);

}  // namespace vantrel::tool::security
