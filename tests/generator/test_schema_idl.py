"""The channel schemas recordings carry, for every message: accepted by idlc, member ids as on the bus, keys
marked (tests/tools/mcap-check/check.mjs decodes real messages with them)."""

import os
import re
import subprocess
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "generator"))

from vantrel_gen.cpp_names import all_messages  # noqa: E402
from vantrel_gen.idl_reader import load_all  # noqa: E402
from vantrel_gen.schema_idl import flattened_key_schema, flattened_schema, member_id  # noqa: E402

IDL_DIR = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "idl")


class FlattenedSchemas(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.schemas = [(f"{mod.name}.{msg.interface}.{msg.name}", msg, flattened_schema(msg))
                       for mod in load_all(IDL_DIR).values() for msg in all_messages(mod)]

    def test_ids_are_those_cyclone_writes_in_member_headers(self):
        # Read off the member headers of serialized M_Alert messages.
        self.assertEqual(member_id("kelva_sending_actor"), 0x0A8D3F71)
        self.assertEqual(member_id("Condition"), 0x0341299E)
        self.assertEqual(member_id("EnumeratedValue"), 0x04E240E2)

    def test_keys_are_marked_and_key_schemas_list_them_by_member_id_in_a_final_struct(self):
        # A dispose sample of M_MissionCtrl.IClient.ReportStoredMission carried KeyName before
        # kelva_sending_actor: the key members in the order of their ids, not of their declaration.
        keyed = [(name, msg) for name, msg, _ in self.schemas if msg.key_members]
        self.assertGreater(len(keyed), 100)
        for name, msg, text in self.schemas:
            with self.subTest(name):
                message = text[text.rindex(f"struct {msg.name} {{"):]
                for m in msg.members:
                    self.assertEqual(re.search(rf"@key \S+ {m.idl_name};", message) is not None, m.key, m.name)
                if msg.key_members:
                    key_text = flattened_key_schema(msg)
                    self.assertIn(f"@final\n  struct {msg.name} {{", key_text)
                    names = re.findall(r"^    \S+ (\w+);$", key_text, re.MULTILINE)
                    expected = sorted(msg.key_members, key=lambda m: member_id(m.name))
                    self.assertEqual(names, [m.idl_name for m in expected])
        stored = next(msg for name, msg in keyed if name == "M_MissionCtrl.IClient.ReportStoredMission")
        self.assertEqual(re.findall(r"string (\w+);", flattened_key_schema(stored)), ["KeyName", "kelva_sending_actor"])

    def test_the_dds_idl_compiler_accepts_every_schema(self):
        with tempfile.TemporaryDirectory() as tmp:
            for name, msg, text in self.schemas:
                for suffix, schema in (("", text), (".key", msg.key_members and flattened_key_schema(msg))):
                    if not schema:
                        continue
                    path = os.path.join(tmp, f"{name}{suffix}.idl")
                    with open(path, "w", encoding="utf-8") as f:
                        f.write(schema)
                    run = subprocess.run(["idlc", "-l", "c", "-o", tmp, path], capture_output=True, text=True, timeout=60)
                    self.assertEqual(run.returncode, 0, f"{path}: {run.stderr}")


if __name__ == "__main__":
    unittest.main()
