// The text form of wire values, as log lines show them.
#include <gtest/gtest.h>

#include "intern/vantrel/wire/M_AlertWire.h"
#include "intern/vantrel/wire/M_CommonWire.h"

namespace {

template <class W, class A>
std::string text(const A& value) {
    vantrel::frame::Scratch scratch;
    W wire{};
    toWire(wire, value, scratch, "test");
    std::ostringstream out;
    print(out, wire);
    return out.str();
}

TEST(TextForm, NestedOptionalEnumerationAndEmptyList) {
    EXPECT_EQ((text<VendorData_M_Common_SphericalPositionType>(M_Common::SphericalPositionType(12.5, 3, {100}))),
              "[Azimuth: 12.5, Elevation: 3, Range: [100]]");
    EXPECT_EQ((text<VendorData_M_Common_SphericalPositionType>(M_Common::SphericalPositionType(1, 2, {}))),
              "[Azimuth: 1, Elevation: 2, Range: []]");
    M_Alert::AlarmLogType log;
    log.Status = M_Alert::AlarmStatusKind::Active;
    log.Condition.ComponentName = "Fan";
    EXPECT_EQ(text<VendorData_M_Alert_AlarmLogType>(log),
              "[Status: Type::Active, IsSuppressed: 0, IsAcknowledged: 0, IsAutoAcknowledged: 0, Condition: "
              "[SubsystemName: , ComponentName: Fan, Measure: , Nature: , AlarmDescription: ], Category: "
              "Type::Critical_Warning, TimeRaised: [Seconds: 0, Nanoseconds: 0], TimeAcknowledged: []]");
}

TEST(TextForm, PublicToTextMatchesTheWireRendering) {
    EXPECT_EQ(M_Common::toText(M_Common::SphericalPositionType(12.5, 3, {100})),
              "[Azimuth: 12.5, Elevation: 3, Range: [100]]");
    EXPECT_EQ(M_Alert::toText(M_Alert::AlarmCategoryKind::Caution), "Type::Caution");
    M_Alert::AlertSettingsType settings;
    settings.ThreatNotifyingTone = {M_Alert::AudioToneInfoType(), M_Alert::AudioToneInfoType()};
    EXPECT_THROW(M_Alert::toText(settings), std::invalid_argument);  // cannot go on the wire
}

TEST(TextForm, ByteSequenceRendersRawCharacters) {
    VendorData_M_Common_ByteSeqType bytes{};
    std::vector<uint8_t> data{'a', 'b', 'c'};
    vantrel::frame::Scratch scratch;
    vantrel::frame::toWireSeq(bytes, data, scratch, "test", 0);
    std::ostringstream out;
    vantrel::frame::printSeq(out, bytes);
    EXPECT_EQ(out.str(), "[a, b, c]");
}

TEST(TextForm, UnknownEnumerationValueReadsAsLiteralZero) {
    M_Alert::AlarmStatusKind::Type value = M_Alert::AlarmStatusKind::Active;
    fromWire(value, static_cast<VendorData_M_Alert_AlarmStatusKind_Type>(99));
    EXPECT_EQ(value, M_Alert::AlarmStatusKind::Unknown);
}

}  // namespace
