"""Tests of the IDL reader: small module files in a temp dir, read into the model or rejected."""

import os
import shutil
import sys
import tempfile
import textwrap
import unittest

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "..", "generator"))

from vantrel_gen.idl_reader import IdlError, load, load_all  # noqa: E402
from vantrel_gen.model import Enum, TypeRef  # noqa: E402

ALERT = """\
#ifndef VANTREL_M_ALERT_IDL
#define VANTREL_M_ALERT_IDL
#include "M_Common.idl"          // shared types
// #include "M_Camera.idl"       a commented-out include is no include

/* A block comment over several lines,
   with a declaration in it: struct Fake { long x; };
*/
module VendorData {
module M_Alert {
  const string ModuleRelease = "9.10.0 \\"q\\"";
  module AlarmCategoryKind {
    @bit_bound(32) enum Type { Critical_Warning, Warning, Caution, Advisory };
  };
  typedef string AlertIdType;
  typedef sequence<AlertIdType> AlertIdListType;
  typedef M_Common::AngleDegreesType BearingType;
  @mutable @autoid(HASH) @nested
  struct AlarmInfoType {
    AlertIdType Id;
    AlarmCategoryKind::Type Category;
    M_Common::Availability::Type Availability;
    ::VendorData::M_Common::TimeType Raised;
    uint32 _BitMask;
    BearingType Bearing;
    M_Common::BoundedStringType Text;
    sequence<octet> Payload;
    M_Common::AngleDegreesOptionalType Elevation;
    sequence<string<8>, 4> Tags;
    boolean Active;
    uint64 Size64;
    float Ratio;
  };
  typedef sequence<AlarmInfoType, 1> AlarmInfoOptionalType;

  module IService {
    @mutable @autoid(HASH)
    struct CmdRaiseAlarm {
      string kelva_sending_actor;
      AlarmInfoType Condition;
    };
    @autoid(HASH) @mutable
    struct CmdClearAlarm {
      string kelva_sending_actor;
      @key AlertIdType KeyAlarmId;
    };
  };
  module IClient {
    @mutable @autoid(HASH) @vantrel_dispose
    struct ReportAlertStatus {
      @key string kelva_sending_actor;
      AlarmInfoOptionalType Status;
    };
    @mutable @autoid(HASH) @vantrel_dispose
    struct ReportAlarmLog {
      @key string kelva_sending_actor;
      @key AlertIdType KeyAlarmId;
      AlarmInfoType Alarm;
      boolean Default_;
    };
    @mutable @autoid(HASH)
    struct EventAlarmIds {
      string kelva_sending_actor;
      AlertIdListType Ids;
      uint32 _Port;
    };
  };
};
};
#endif
"""


def write(folder, name, text):
    path = os.path.join(folder, name)
    with open(path, "w", encoding="utf-8") as fh:
        fh.write(text)
    return path


def module_file(name, body, includes=('"M_Common.idl"',)):
    """A guarded file of module `name` holding the definitions `body`."""
    head = [f"#ifndef G_{name}", f"#define G_{name}"] + [f"#include {i}" for i in includes]
    return "\n".join(head + ["module VendorData {", f"module {name} {{", textwrap.dedent(body).strip("\n"),
                             "};", "};", "#endif", ""])


def marked_line(text):
    """Line number (from 1) of the line carrying the marker `// <-`."""
    return next(i for i, line in enumerate(text.splitlines(), 1) if "// <-" in line)


class TempIdlDir(unittest.TestCase):
    def setUp(self):
        tmp = tempfile.TemporaryDirectory()
        self.addCleanup(tmp.cleanup)
        self.dir = tmp.name
        for name in ("vantrel_annotations.idl", "M_Common.idl"):  # the real ones
            shutil.copy(os.path.join(HERE, "..", "..", "idl", name), self.dir)

    def assertIdlError(self, path, line, fragment, load_path=None):
        with self.assertRaises(IdlError) as cm:
            load(load_path or path)
        text = str(cm.exception)
        self.assertTrue(text.startswith(f"{path}:{line}: "), text)
        self.assertIn(fragment, text)


class RepresentativeModule(TempIdlDir):
    def setUp(self):
        super().setUp()
        write(self.dir, "M_Alert.idl", ALERT)
        write(self.dir, "notes.idl", "not read by load_all: only M_*.idl are")
        self.mods = load_all(self.dir)
        self.alert = self.mods["M_Alert"]

    def test_module_level(self):
        self.assertEqual(sorted(self.mods), ["M_Alert", "M_Common"])
        a = self.alert
        self.assertEqual((a.name, a.file), ("M_Alert", os.path.join(self.dir, "M_Alert.idl")))
        self.assertEqual((a.includes, a.include_files), (["M_Common"], ["M_Common.idl"]))
        self.assertEqual(a.consts, {"ModuleRelease": '9.10.0 "q"'})
        self.assertEqual(a.enums, [Enum("M_Alert", "AlarmCategoryKind",
                                        ["Critical_Warning", "Warning", "Caution", "Advisory"])])
        self.assertEqual([x.name for x in a.aliases],
                         ["AlertIdType", "AlertIdListType", "BearingType", "AlarmInfoOptionalType"])
        self.assertEqual([s.name for s in a.structs], ["AlarmInfoType"])
        self.assertTrue(a.has_interfaces)

    def test_value_type_members_in_order_with_types_resolved(self):
        members = self.alert.structs[0].members
        self.assertEqual(
            [(m.name, m.type.kind, str(m.type)) for m in members],
            [("Id", "alias", "M_Alert::AlertIdType"),
             ("Category", "enum", "M_Alert::AlarmCategoryKind::Type"),
             ("Availability", "enum", "M_Common::Availability::Type"),
             ("Raised", "struct", "M_Common::TimeType"),
             ("BitMask", "prim", "uint32"),
             ("Bearing", "alias", "M_Alert::BearingType"),
             ("Text", "alias", "M_Common::BoundedStringType"),
             ("Payload", "sequence", "sequence<octet>"),
             ("Elevation", "alias", "M_Common::AngleDegreesOptionalType"),
             ("Tags", "sequence", "sequence<string<8>, 4>"),
             ("Active", "prim", "boolean"),
             ("Size64", "prim", "uint64"),
             ("Ratio", "prim", "float")])
        self.assertEqual((members[0].idl_name, members[4].idl_name), ("Id", "_BitMask"))
        self.assertFalse(any(m.key for m in members))
        common = {x.name: x for x in self.mods["M_Common"].enums + self.mods["M_Common"].structs}
        # Names resolve to the declarations of the included module, read once: the objects referenced from M_Alert are those of the M_Common module itself.
        self.assertIs(members[2].type.target, common["Availability"])
        self.assertIs(members[3].type.target, common["TimeType"])
        self.assertIs(members[1].type.target, self.alert.enums[0])
        # BearingType -> M_Common::AngleDegreesType -> double
        self.assertEqual(members[5].type.resolved(), TypeRef("prim", prim="double"))
        self.assertEqual(members[6].type.resolved(), TypeRef("string", bound=255))
        elevation = members[8].type.resolved()
        self.assertEqual((elevation.kind, elevation.bound, str(elevation.element)),
                         ("sequence", 1, "M_Common::AngleDegreesType"))
        self.assertEqual(members[9].type.element, TypeRef("string", bound=8))
        self.assertIs(members[0].type.resolved(), self.alert.aliases[0].type)
        ids = self.alert.aliases[1].type
        self.assertEqual((ids.bound, ids.element.target), (None, self.alert.aliases[0]))

    def test_messages(self):
        table = {iface: [(m.name, [x.name for x in m.members], [x.name for x in m.key_members],
                          m.key_pattern, m.dispose) for m in msgs]
                 for iface, msgs in self.alert.interfaces.items()}
        actor = "kelva_sending_actor"
        self.assertEqual(table, {
            "IService": [("CmdRaiseAlarm", [actor, "Condition"], [], "none", False),
                         ("CmdClearAlarm", [actor, "KeyAlarmId"], ["KeyAlarmId"], "key", False)],
            "IClient": [("ReportAlertStatus", [actor, "Status"], [actor], "actor", True),
                        ("ReportAlarmLog", [actor, "KeyAlarmId", "Alarm", "Default_"],
                         [actor, "KeyAlarmId"], "actor+key", True),
                        ("EventAlarmIds", [actor, "Ids", "Port"], [], "none", False)]})
        log = self.alert.interfaces["IClient"][1]
        self.assertEqual([p.name for p in log.params], ["KeyAlarmId", "Alarm", "Default_"])
        self.assertEqual((log.module, log.interface), ("M_Alert", "IClient"))
        self.assertEqual(self.alert.interfaces["IClient"][2].members[2].idl_name, "_Port")


class Includes(TempIdlDir):
    def test_include_dirs_are_searched_after_the_including_folder(self):
        mods = os.path.join(self.dir, "mods")
        os.mkdir(mods)
        # M_Alert.idl sits in mods/, its includes in the parent folder.
        path = write(mods, "M_Alert.idl", ALERT)
        self.assertEqual(load(path, [self.dir]).includes, ["M_Common"])
        with self.assertRaises(IdlError) as cm:
            load(path)
        line = next(i for i, text in enumerate(ALERT.splitlines(), 1) if text.startswith("#include"))
        self.assertEqual(str(cm.exception), f"{path}:{line}: cannot find include file \"M_Common.idl\"")

    def test_diamond_includes_read_each_file_once(self):
        write(self.dir, "M_Left.idl", module_file("M_Left", """
            @mutable @autoid(HASH) @nested
            struct LeftType { M_Common::TimeType T; };"""))
        path = write(self.dir, "M_Top.idl", module_file("M_Top", """
            typedef sequence<M_Left::LeftType> LeftListType;
            typedef M_Common::TimeType StampType;""",
            includes=('"M_Common.idl"', '"M_Left.idl"', '"M_Common.idl"')))
        top = load(path)
        self.assertEqual(top.includes, ["M_Common", "M_Left"])
        self.assertEqual(top.include_files, ["M_Common.idl", "M_Left.idl", "M_Common.idl"])
        left = top.aliases[0].type.element.target
        self.assertIs(left.members[0].type.target, top.aliases[1].type.target)

    def test_a_module_sees_only_what_it_includes(self):
        # M_A is read first by load_all, but M_B does not include it: idlc would not see M_A there.
        write(self.dir, "M_A.idl", module_file("M_A", "typedef string NameType;"))
        text = module_file("M_B", "typedef M_A::NameType OtherType; // <-")
        path = write(self.dir, "M_B.idl", text)
        with self.assertRaises(IdlError) as cm:
            load_all(self.dir)
        self.assertEqual(str(cm.exception), f"{path}:{marked_line(text)}: unknown type 'M_A::NameType'")


VALUE = "@mutable @autoid(HASH) @nested\nstruct AType {\n"
CMD = "module IService {\n@mutable @autoid(HASH)\nstruct CmdGo {\n"
REPORT = "module IClient {\n@mutable @autoid(HASH)"


class Errors(TempIdlDir):
    # (body with its fault on the line marked `// <-`, what the error says)
    MODULE_CASES = [
        ("typedef NoSuchType AType; // <-", "unknown type 'NoSuchType'"),
        (VALUE + "int32 X;\nBType Y; // <-\n};\ntypedef string BType;", "unknown type 'BType'"),
        ("typedef string AType;\ntypedef int32 atype; // <-", "'atype' is already declared in VendorData::M_T"),
        (VALUE + "int32 X; };\ntypedef string AType; // <-", "already declared"),
        (VALUE + "int32 X;\nint32 _X; // <-\n};", "member 'X' repeated"),
        ("typedef M_Common::Availability AType; // <-", "write M_Common::Availability::Type"),
        ("@mutable @autoid(HASH)\nstruct AType { // <-\nint32 X;\n};", "value type 'AType' is missing @nested"),
        ("@nested @autoid(HASH)\nstruct AType { // <-\nint32 X;\n};", "missing @mutable"),
        ("@mutable @autoid(HASH) @nested\n@vantrel_dispose // <-\nstruct AType { int32 X; };",
         "@vantrel_dispose is not allowed on a value type"),
        (CMD + "/* the actor\ncomes second here */\nint32 Speed; // <-\nstring kelva_sending_actor;\n};\n};",
         "message 'CmdGo' must start with 'string kelva_sending_actor'"),
        (CMD + "string<64> kelva_sending_actor; // <-\n};\n};", "must start with 'string kelva_sending_actor'"),
        (REPORT + "\n@nested // <-\nstruct ReportGo { string kelva_sending_actor; };\n};",
         "message 'ReportGo' must not be @nested"),
        ("module IClient {\n@mutable\nstruct ReportGo { string kelva_sending_actor; }; // <-\n};",
         "message 'ReportGo' is missing @autoid(HASH)"),
        ("module IClient {\n@mutable @autoid(SEQUENTIAL) // <-\nstruct ReportGo { string kelva_sending_actor; };\n};",
         "write @autoid(HASH)"),
        (REPORT + " @vantrel_dispose\nstruct ReportGo { // <-\nstring kelva_sending_actor;\nstring KeyId;\n};\n};",
         "message 'ReportGo' is @vantrel_dispose but has no @key member"),
        ("module IClient { }; // <-", "module 'IClient' is empty"),
        ("module GoKind {\nenum Type { Undefined, Go }; // <-\n};", "@bit_bound(32)"),
        ("typedef long AType; // <-", "type 'long' is outside the subset"),
        ("union AType switch (int32) { case 1: int32 X; }; // <-", "'union' is outside the subset"),
        ("@mutable @autoid(HASH) @nested @final // <-\nstruct AType { int32 X; };", "@final is outside the subset"),
        (VALUE + "uint32 Port; // <-\n};", "'Port' collides with the IDL keyword 'port': write _Port"),
        (VALUE + "int32 X[3]; // <-\n};", "arrays are outside the subset"),
        ("typedef sequence<int32, 0> AType; // <-", "positive bound"),
        ("typedef string AType\ntypedef string BType; // <-", "expected ';', found 'typedef'"),
        ("typedef string AType;\n/* never closed // <-\ntypedef string BType;", "unterminated /* comment"),
    ]

    def test_faults_name_the_file_and_line(self):
        plain = module_file("M_T", "typedef string AType;")
        cases = [(module_file("M_T", body), fragment) for body, fragment in self.MODULE_CASES] + [
            ('module VendorData { module M_T { typedef string AType; }; }; // <-\n', "include guard"),
            ("#ifndef G\n#define G\n#pragma once // <-\n#endif\n", "#pragma is outside the subset"),
            (plain.replace("#endif", "// <-"), "missing #endif"),
            (plain.replace("module M_T {", "module M_X { // <-"), "the file of module M_X is M_X.idl"),
            (plain.replace("module VendorData {", "module Vendor { // <-"), "the outer module must be VendorData"),
            (module_file("M_T", REPORT + " @vantrel_dispose // <-\nstruct ReportGo { @key string kelva_sending_actor; };"
                         "\n};", includes=()), "@vantrel_dispose is not declared"),
        ]
        for text, fragment in cases:
            with self.subTest(fragment):
                path = write(self.dir, "M_T.idl", text)
                self.assertIdlError(path, marked_line(text), fragment)

    def test_a_fault_in_an_included_file_names_that_file(self):
        cases = [("M_Bad", module_file("M_Bad", "typedef string AType;\ntypedef AType AType; // <-"),
                  "'AType' is already declared"),
                 ("M_U", module_file("M_U", "typedef string BType;", includes=('"M_T.idl" // <-',)), "include cycle")]
        for name, text, fragment in cases:
            with self.subTest(fragment):
                top = write(self.dir, "M_T.idl", module_file("M_T", "typedef string AType;", includes=(f'"{name}.idl"',)))
                self.assertIdlError(write(self.dir, f"{name}.idl", text), marked_line(text), fragment, load_path=top)


if __name__ == "__main__":
    unittest.main()
