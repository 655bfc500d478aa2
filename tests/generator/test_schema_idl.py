"""Tests of the channel schemas recordings carry (schema_idl.flattened_schema), over every message of the
contract: self-contained IDL within what readers of recordings parse, with the member ids the bus uses.
That the schemas decode real messages is checked by tests/tools/decode_check.sh."""

import os
import re
import shutil
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "generator"))

from vantrel_gen.cpp_names import all_messages  # noqa: E402
from vantrel_gen.idl_reader import load_all  # noqa: E402
from vantrel_gen.schema_idl import flattened_key_schema, flattened_schema, member_id  # noqa: E402

IDL_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "idl")

_MEMBER = re.compile(r"^\s*@id\((\d+)\) (@key )?(\S.*) (\w+);$")


def every_schema():
    """(qualified message name, message, schema text) of every operation."""
    for mod in load_all(IDL_DIR).values():
        for msg in all_messages(mod):
            yield f"{mod.name}.{msg.interface}.{msg.name}", msg, flattened_schema(msg)


class MemberIds(unittest.TestCase):
    def test_ids_are_those_cyclone_writes_in_member_headers(self):
        # Read off the member headers of serialized M_Alert messages.
        self.assertEqual(member_id("kelva_sending_actor"), 0x0A8D3F71)
        self.assertEqual(member_id("Condition"), 0x0341299E)
        self.assertEqual(member_id("EnumeratedValue"), 0x04E240E2)


class FlattenedSchemas(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.schemas = list(every_schema())

    def test_every_operation_has_one(self):
        self.assertEqual(len(self.schemas), 424)

    def test_no_preprocessor_lines_annotation_declarations_or_nested_sequences(self):
        for name, _, text in self.schemas:
            with self.subTest(name):
                self.assertNotRegex(text, r"(?m)^\s*#")
                self.assertNotIn("@annotation", text)
                self.assertNotIn("sequence<sequence", text)

    def test_no_sequence_of_a_sequence_typedef_or_of_an_enumeration(self):
        for name, _, text in self.schemas:
            with self.subTest(name):
                sequence_typedefs = set(re.findall(r"typedef sequence<.*> (\w+);", text))
                enums = set(re.findall(r"module (\w+) \{\s*@bit_bound\(32\) enum Type", text))
                enum_typedefs = {alias for target, alias in re.findall(r"typedef ([\w:]+)::Type (\w+);", text)
                                 if target.split("::")[-1] in enums}
                for element in re.findall(r"sequence<([\w:]+)", text):
                    parts = element.split("::")
                    self.assertNotIn(parts[-1], sequence_typedefs | enum_typedefs, element)
                    self.assertFalse(parts[-1] == "Type" and parts[-2] in enums, element)

    def test_every_member_of_a_mutable_struct_carries_its_hashed_id(self):
        for name, msg, text in self.schemas:
            with self.subTest(name):
                in_mutable = False
                members = 0
                for line in text.splitlines():
                    if "@mutable" in line:
                        in_mutable = True
                    elif line.strip() == "};":
                        in_mutable = False
                    elif in_mutable and not line.strip().startswith(("struct", "module")):
                        m = _MEMBER.match(line)
                        self.assertIsNotNone(m, line)
                        self.assertEqual(int(m.group(1)), member_id(m.group(4).lstrip("_")), line)
                        members += 1
                self.assertGreaterEqual(members, len(msg.members))

    def test_keys_are_marked(self):
        for name, msg, text in self.schemas:
            with self.subTest(name):
                message = text[text.rindex(f"struct {msg.name} {{"):]
                for m in msg.members:
                    marked = re.search(rf"@key \S+ {m.idl_name};", message) is not None
                    self.assertEqual(marked, m.key, m.name)

    def test_key_schemas_list_the_keys_by_member_id_in_a_final_struct(self):
        # A dispose sample of M_MissionCtrl.IClient.ReportStoredMission carried KeyName before
        # kelva_sending_actor: the key members in the order of their ids, not of their declaration.
        keyed = [(name, msg) for name, msg, _ in self.schemas if msg.key_members]
        self.assertGreater(len(keyed), 100)
        for name, msg in keyed:
            with self.subTest(name):
                text = flattened_key_schema(msg)
                self.assertIn(f"@final\n  struct {msg.name} {{", text)
                names = re.findall(r"^    \S+ (\w+);$", text, re.MULTILINE)
                expected = sorted(msg.key_members, key=lambda m: member_id(m.name))
                self.assertEqual(names, [m.idl_name for m in expected])
        stored = next(msg for name, msg in keyed if name == "M_MissionCtrl.IClient.ReportStoredMission")
        self.assertEqual(re.findall(r"string (\w+);", flattened_key_schema(stored)), ["KeyName", "kelva_sending_actor"])

    @unittest.skipUnless(shutil.which("idlc"), "no idlc on the path")
    def test_the_dds_idl_compiler_accepts_every_schema(self):
        with tempfile.TemporaryDirectory() as tmp:
            for name, _, text in self.schemas:
                path = os.path.join(tmp, f"{name}.idl")
                with open(path, "w", encoding="utf-8") as f:
                    f.write(text)
                run = subprocess.run(["idlc", "-l", "c", "-o", tmp, path], capture_output=True, text=True, timeout=60)
                self.assertEqual(run.returncode, 0, f"{name}: {run.stderr}")
            for name, msg, _ in self.schemas:
                if msg.key_members:
                    path = os.path.join(tmp, f"{name}.key.idl")
                    with open(path, "w", encoding="utf-8") as f:
                        f.write(flattened_key_schema(msg))
                    run = subprocess.run(["idlc", "-l", "c", "-o", tmp, path], capture_output=True, text=True, timeout=60)
                    self.assertEqual(run.returncode, 0, f"{name} (key): {run.stderr}")


if __name__ == "__main__":
    unittest.main()
