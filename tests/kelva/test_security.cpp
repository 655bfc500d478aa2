// The check of a [security] section's files: every fault is refused naming the file first, a session refuses
// the same with the same text before making a participant, and the DDS layer accepts what the module makes.
#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <tuple>
#include <vector>

#include "kelva/actors/SessionImpl.h"
#include "kelva/config/Config.h"
#include "kelva/security/Check.h"
#include "kelva/security/Documents.h"
#include "kelva/security/SignedDocument.h"
#include "vantrel/test/Sessions.h"
#include "vantrel/test/TempDir.h"

namespace {

namespace ks = kelva::security;
using kelva::actors::SessionImpl;
using kelva::config::ConfigError;
using kelva::config::Security;
using vantrel::test::participantsOf;

constexpr std::time_t kHour = 3600;
constexpr std::time_t kDay = 24 * kHour;

class SecurityFiles : public vantrel::test::TempDirTest {
protected:
    void SetUp() override {
        TempDirTest::SetUp();
        m_valid.identityCa = m_valid.permissionsCa = write("ca.pem", m_ca.certificate.pem());
        writeIdentity("app", m_ca, current());
        m_valid.identityCertificate = path("app.pem");
        m_valid.privateKey = path("app.key");
        m_valid.governance = write("governance.p7s", ks::signDocument(ks::governanceXml({{0, 230}}, "NONE"), m_ca));
        m_valid.permissions = write("app.permissions.p7s", permissions("CN=app", current(), m_ca));
    }

    ks::Validity current() const { return {m_now - kHour, m_now + 30 * kDay}; }
    // NAME.pem and NAME.key: an identity certified by `ca`.
    void writeIdentity(const std::string& name, const ks::Authority& ca, const ks::Validity& validity) const {
        const ks::PrivateKey key = ks::PrivateKey::generate();
        write(name + ".key", key.pem());
        write(name + ".pem", ks::makeIdentityCertificate(key, name, ca, validity).pem());
    }
    // Signed permissions of `subject` on every topic of every domain.
    static std::string permissions(const std::string& subject, const ks::Validity& validity, const ks::Authority& ca) {
        return ks::signDocument(ks::permissionsXml({subject, validity, {{0, 230}}, {"*"}, {"*"}}, "test"), ca);
    }

    static std::string refusal(const Security& s) {
        return vantrel::test::thrownText<ConfigError>([&] { ks::checkFiles(s); });
    }

    std::time_t m_now = std::time(nullptr);
    ks::Authority m_ca = ks::Authority::make("test CA", {m_now - kHour, m_now + 60 * kDay});
    ks::Authority m_otherCa = ks::Authority::make("other CA", {m_now - kHour, m_now + 60 * kDay});
    Security m_valid;
};

TEST_F(SecurityFiles, EveryFaultIsRefusedNamingTheFileFirstAndASessionMakesNoParticipantThen) {
    ASSERT_EQ(ks::checkFiles(m_valid), "CN=app");
    const Security v = m_valid;
    const std::string ca = v.identityCa;
    std::string changed = read(v.governance);
    changed[changed.find("ENCRYPT")] = 'N';  // one byte of the signed text
    writeIdentity("early", m_ca, {m_now + kDay, m_now + 2 * kDay});
    writeIdentity("other", m_ca, current());
    const std::string governance = ks::governanceXml({{0, 230}}, "NONE");
    // Expired, foreign or tampered material, another application's permissions and missing files are refused
    // end to end in tests/security. Here the rest: (the file put in place, the error after "<file>: ").
    const std::vector<std::tuple<std::string Security::*, std::string, std::string>> faults = {
        {&Security::identityCertificate, path("early.pem"),
         "certificate not valid before " + ks::isoTime(m_now + kDay) + "Z"},
        {&Security::privateKey, path("other.key"), "private key does not belong to the certificate " + v.identityCertificate},
        {&Security::governance, write("changed.p7s", changed),
         "signature does not verify against the permissions CA " + ca + " (changed after signing)"},
        {&Security::governance, write("other-ca.p7s", ks::signDocument(governance, m_otherCa)),
         "signed by another CA than the permissions CA " + ca + " (signer CN=other CA)"},
        {&Security::governance, write("g.xml", governance), "not an S/MIME signed document"},
        {&Security::permissions, write("spelt.p7s", permissions("CN = app", current(), m_ca)),
         "grants 'CN = app', not the identity CN=app of " + v.identityCertificate},
        {&Security::permissions, v.governance, "not a permissions document (no <dds><permissions><grant>)"},
        {&Security::permissions, write("not-xml.p7s", ks::signDocument("<dds><permissions>", m_ca)), "not XML ("},
    };
    for (const auto& [member, file, expected] : faults) {
        Security s = v;
        s.*member = file;
        const std::string error = refusal(s);
        EXPECT_EQ(error.rfind(file + ": " + expected, 0), 0u) << error;
    }
    // Several grants: the identity's is the one that counts, its times read in any zone.
    const auto document = [&](const std::string& appNotAfter) {
        return ks::signDocument(R"(<?xml version="1.0"?>
<dds xmlns:xsi="http://www.w3.org/2001/XMLSchema-instance"><permissions>
  <grant name="panel"><subject_name>CN=panel</subject_name>
    <validity><not_before>2020-01-01T00:00:00</not_before><not_after>2020-01-02T00:00:00</not_after></validity>
    <default>DENY</default></grant>
  <grant name="app"><subject_name> CN=app </subject_name>
    <validity><not_before>2020-01-01T00:00:00.250Z</not_before><not_after>)" + appNotAfter + R"(</not_after></validity>
    <allow_rule><domains><id>0</id></domains><publish><topics><topic>*</topic></topics></publish></allow_rule>
    <default>DENY</default></grant>
</permissions></dds>
)", m_ca);
    };
    Security s = v;
    s.permissions = write("p.p7s", document("2099-12-31T23:59:59+01:00"));
    EXPECT_EQ(refusal(s), "no exception");
    s.permissions = write("p.p7s", document("2021-06-30T14:00:00+02:00"));
    EXPECT_EQ(refusal(s), s.permissions + ": permissions expired on 2021-06-30T12:00:00Z");
    s.permissions = write("p.p7s", document("2021-06-31T00:00:00"));
    EXPECT_EQ(refusal(s), s.permissions + ": grant 'app': <not_after> '2021-06-31T00:00:00' is not a date and time "
                                          "(YYYY-MM-DDThh:mm:ss)");

    const int domain = vantrel::test::domainId();
    kelva::config::Config c;
    c.security = m_valid;
    {
        // The DDS layer accepts what the module makes: a secured participant.
        auto session = SessionImpl::create(domain, c, false);
        EXPECT_GT(session->participant(), 0);
        EXPECT_EQ(participantsOf(domain), 1);
    }
    // Another application's permissions and permissions not yet valid were refused by the DDS layer alone,
    // without naming a file (the rest are refused end to end by the security tests).
    for (const std::string& file : {write("panel.permissions.p7s", permissions("CN=panel", current(), m_ca)),
                                    write("early.p7s", permissions("CN=app", {m_now + kDay, m_now + 2 * kDay}, m_ca))}) {
        c.security = m_valid;
        c.security.permissions = file;
        const std::string refused = vantrel::test::thrownText<ConfigError>([&] { SessionImpl::create(domain, c, false); });
        EXPECT_EQ(refused, refusal(c.security));
        EXPECT_EQ(refused.rfind(file + ": ", 0), 0u) << refused;
        EXPECT_EQ(participantsOf(domain), 0) << file;
    }
}

}  // namespace
