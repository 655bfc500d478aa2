// The toolkit's [network] and [security] settings: how they are read and the DDS configuration a network
// section makes (the security files themselves: test_security.cpp).
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "kelva/actors/SessionImpl.h"
#include "kelva/config/Config.h"
#include "kelva/config/Participant.h"
#include "vantrel/test/Support.h"

namespace {

namespace fs = std::filesystem;
using kelva::actors::SessionImpl;
using kelva::config::Config;
using kelva::config::ConfigError;

class Deployment : public ::testing::Test {
protected:
    void SetUp() override {
        const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
        m_dir = fs::temp_directory_path() / ("kelva-deploy-" + std::to_string(::getpid()) + "-" + info->name());
        fs::remove_all(m_dir);
        fs::create_directories(m_dir);
    }
    void TearDown() override {
        std::error_code ignored;
        fs::remove_all(m_dir, ignored);
    }

    std::string write(const std::string& name, const std::string& content) const {
        const fs::path path = m_dir / name;
        std::ofstream(path, std::ios::binary) << content;
        return path.string();
    }

    std::string errorOf(const std::string& toml) const {
        try {
            Config::fromFile(write("kelva.toml", toml));
        } catch (const ConfigError& e) {
            return e.what();
        }
        return "no error";
    }

    static int participantsOf(int domain) {
        dds_entity_t found[4];
        return dds_lookup_participant(static_cast<dds_domainid_t>(domain), found, 4);
    }

    fs::path m_dir;
};

TEST_F(Deployment, NetworkSectionIsReadWithPathsAgainstTheFilesFolder) {
    const std::string path = write("kelva.toml", R"([network]
dds_config = ["profiles/lan.xml", "/etc/extra.xml"]
interface = "eth1"
peers = ["192.168.7.2", "192.168.7.3"]
)");
    const Config c = Config::fromFile(path);
    EXPECT_EQ(c.network.ddsConfig, (std::vector<std::string>{(m_dir / "profiles/lan.xml").string(), "/etc/extra.xml"}));
    EXPECT_EQ(c.network.interface, "eth1");
    EXPECT_EQ(c.network.peers, (std::vector<std::string>{"192.168.7.2", "192.168.7.3"}));
    EXPECT_EQ(kelva::config::domainConfigText(c.network),
              "file://" + (m_dir / "profiles/lan.xml").string() +
                  ",file:///etc/extra.xml,<CycloneDDS><Domain id=\"any\"><General><Interfaces><NetworkInterface "
                  "name=\"eth1\"/></Interfaces></General><Discovery><Peers><Peer address=\"192.168.7.2\"/><Peer "
                  "address=\"192.168.7.3\"/></Peers></Discovery></Domain></CycloneDDS>");

    // An address selects the interface by address; a single file needs no list.
    const Config single = Config::fromFile(write("single.toml", "[network]\ndds_config = \"lan.xml\"\ninterface = \"10.0.0.4\"\n"));
    EXPECT_EQ(kelva::config::domainConfigText(single.network),
              "file://" + (m_dir / "lan.xml").string() +
                  ",<CycloneDDS><Domain id=\"any\"><General><Interfaces><NetworkInterface address=\"10.0.0.4\"/>"
                  "</Interfaces></General></Domain></CycloneDDS>");
    EXPECT_FALSE(Config{}.network.configured());
    EXPECT_EQ(kelva::config::domainConfigText(Config{}.network), "");
}

TEST_F(Deployment, NetworkAndSecurityFaultsNameTheSetting) {
    const std::string file = (m_dir / "kelva.toml").string();
    EXPECT_EQ(errorOf("[network]\nmulticast = true\n"), file + ":2: network.multicast: unknown setting");
    EXPECT_EQ(errorOf("[network]\npeers = [\"10.0.0.1\", \"<Peer/>\"]\n"),
              file + ":2: network.peers: not an address: \"<Peer/>\"");
    EXPECT_EQ(errorOf("[network]\ndds_config = 3\n"), file + ":2: network.dds_config: expected a string");
    // Half a security section would start an unsecured participant.
    EXPECT_EQ(errorOf("[security]\nidentity_ca = \"ca.pem\"\nidentity_certificate = \"a.pem\"\nprivate_key = \"a.key\"\n"
                      "permissions_ca = \"ca.pem\"\ngovernance = \"g.p7s\"\n"),
              file + ":1: security.permissions: missing (security needs all six files)");
    const Config c = Config::fromFile(write("ok.toml", "[security]\nidentity_ca = \"keys/ca.pem\"\nidentity_certificate = "
                                                       "\"a.pem\"\nprivate_key = \"a.key\"\npermissions_ca = \"/pki/ca.pem\"\n"
                                                       "governance = \"g.p7s\"\npermissions = \"p.p7s\"\n"));
    EXPECT_TRUE(c.security.enabled());
    EXPECT_EQ(c.security.identityCa, (m_dir / "keys/ca.pem").string());
    EXPECT_EQ(c.security.permissionsCa, "/pki/ca.pem");
    EXPECT_EQ(c.security.permissions, (m_dir / "p.p7s").string());
}

TEST_F(Deployment, SessionsOfANetworkShareTheDomainItsConfigurationMade) {
    const int domain = vantrel::test::domainId();
    Config c;
    const char* uri = std::getenv("CYCLONEDDS_URI");
    ASSERT_NE(uri, nullptr);
    ASSERT_EQ(std::string(uri).rfind("file://", 0), 0u);
    // The loopback file selects its interface already (a second selection of it is refused by the DDS layer).
    c.network.ddsConfig = {std::string(uri).substr(7)};
    c.network.peers = {"127.0.0.1"};
    {
        auto first = SessionImpl::create(domain, c, false);
        auto second = SessionImpl::create(domain, c, false);
        EXPECT_EQ(participantsOf(domain), 2);
        first.reset();
        EXPECT_EQ(participantsOf(domain), 1);  // the domain stays while a session uses it
    }
    // Released with its last session: the domain can be made again, with the DDS layer's own configuration.
    auto plain = SessionImpl::create(domain, Config{}, false);
    EXPECT_EQ(participantsOf(domain), 1);
    plain.reset();

    c.network.ddsConfig = {(m_dir / "absent.xml").string()};
    try {
        SessionImpl::create(domain, c, false);
        ADD_FAILURE() << "a missing DDS configuration file was accepted";
    } catch (const std::runtime_error& e) {
        EXPECT_EQ(std::string(e.what()).rfind("cannot create DDS domain " + std::to_string(domain), 0), 0u) << e.what();
    }
    EXPECT_EQ(participantsOf(domain), 0);
}

}  // namespace
