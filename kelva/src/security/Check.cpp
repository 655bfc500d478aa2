#include "kelva/security/Check.h"

#include "kelva/security/Documents.h"
#include "kelva/security/KeyMaterial.h"
#include "kelva/security/SignedDocument.h"

namespace kelva::security {
namespace {

using config::ConfigError;

void inForce(const std::string& file, const char* what, const Validity& validity, std::time_t now) {
    if (now < validity.notBefore)
        throw ConfigError(file + ": " + what + " not valid before " + isoTime(validity.notBefore) + "Z");
    if (now > validity.notAfter) throw ConfigError(file + ": " + what + " expired on " + isoTime(validity.notAfter) + "Z");
}

Certificate currentCertificate(const std::string& file, std::time_t now) {
    Certificate cert = Certificate::read(file);
    inForce(file, "certificate", cert.validity(), now);
    return cert;
}

// The grant for `subject`, which the DDS layer applies to the identity, in force at `now`.
void grantFor(const config::Security& files, const std::string& subject, const std::string& xml, std::time_t now) {
    const auto grants = readGrants(xml, files.permissions);
    std::string granted;
    for (const auto& grant : grants) {
        if (sameSubject(grant.subject, subject)) {
            inForce(files.permissions, "permissions", grant.validity, now);
            return;
        }
        granted += (granted.empty() ? "'" : ", '") + grant.subject + "'";
    }
    throw ConfigError(files.permissions + ": grants " + granted + ", not the identity " + subject + " of " +
                      files.identityCertificate);
}

}  // namespace

std::string checkFiles(const config::Security& files, std::time_t now) {
    const Certificate identityCa = currentCertificate(files.identityCa, now);
    const Certificate identity = currentCertificate(files.identityCertificate, now);
    if (!identity.signedBy(identityCa))
        throw ConfigError(files.identityCertificate + ": certificate not signed by the identity CA " + files.identityCa);
    if (!identity.belongsTo(PrivateKey::read(files.privateKey)))
        throw ConfigError(files.privateKey + ": private key does not belong to the certificate " +
                          files.identityCertificate);
    const Certificate permissionsCa = currentCertificate(files.permissionsCa, now);
    readGovernance(verifiedDocument(readFile(files.governance), files.governance, permissionsCa, files.permissionsCa),
                   files.governance);
    const std::string subject = identity.subject();
    grantFor(files, subject,
             verifiedDocument(readFile(files.permissions), files.permissions, permissionsCa, files.permissionsCa), now);
    return subject;
}

}  // namespace kelva::security
