#pragma once
// The S/MIME form of the governance and permissions documents, as the DDS layer's access control reads
// them: multipart/signed, the document as text/plain, the signer's certificate included (the
// `openssl smime -sign -text` form).
#include <string>

#include "kelva/Export.h"
#include "kelva/security/KeyMaterial.h"

namespace kelva::security {

KELVA_EXPORT std::string signDocument(const std::string& document, const Authority& signer);

// The document inside a signed text, when its signature verifies against `ca`: the signer is the CA or
// certified by it and no byte of the document changed. Otherwise ConfigError beginning with `origin`, which
// says which of the two failed; `caOrigin` names the CA in it.
KELVA_EXPORT std::string verifiedDocument(const std::string& signedText, const std::string& origin, const Certificate& ca,
                             const std::string& caOrigin);

}  // namespace kelva::security
