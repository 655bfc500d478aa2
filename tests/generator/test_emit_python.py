"""The Python module emitter: every module's output is valid Python, declares one class per value type and
enumeration of the IDL with the members in IDL order, spells keywords so Python accepts them, and gives each
operation its method on the interface and on the sending facade, keyed reports ending in dispose=False."""

import ast
import keyword
import os
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "generator"))

from vantrel_gen.emit_python import emit_python_module, param_name, py_name  # noqa: E402
from vantrel_gen.idl_reader import IdlError, load_all  # noqa: E402
from vantrel_gen.model import Struct  # noqa: E402

IDL_DIR = os.path.join(os.path.dirname(__file__), "..", "..", "idl")


def classes(tree):
    return {node.name: node for node in tree.body if isinstance(node, ast.ClassDef)}


def methods(cls):
    return {node.name: node for node in cls.body if isinstance(node, ast.FunctionDef)}


class EmitPythonTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.modules = load_all(IDL_DIR)
        cls.trees = {name: ast.parse(emit_python_module(mod), filename=f"{name}.py") for name, mod in cls.modules.items()}

    def test_keywords_get_a_trailing_underscore(self):
        self.assertEqual(py_name("None"), "None_")
        self.assertEqual(py_name("Left"), "Left")
        self.assertEqual(param_name("self"), "self_")
        self.assertEqual(param_name("dispose"), "dispose_")

    def test_a_declaration_taking_a_name_of_the_python_module_stops_the_generator(self):
        for name in ("Client", "IService", "ModuleName", "list", "M_Common"):
            mod = load_all(IDL_DIR)["M_Watchdog"]
            mod.structs.append(Struct("M_Watchdog", name, line=99))
            with self.assertRaises(IdlError, msg=name):
                emit_python_module(mod)

    def test_value_classes_list_their_members_in_idl_order(self):
        for name, mod in self.modules.items():
            declared = classes(self.trees[name])
            for struct in mod.structs:
                cls = declared[struct.name]
                slots = next(node.value for node in cls.body if isinstance(node, ast.Assign)
                             and node.targets[0].id == "__slots__")
                self.assertEqual([e.value for e in slots.elts], [py_name(m.name) for m in struct.members],
                                 f"{name}.{struct.name}")
                if struct.members:
                    init = methods(cls)["__init__"]
                    self.assertEqual([a.arg for a in init.args.args], ["self"] + [py_name(m.name) for m in struct.members])

    def test_enumerations_have_their_literals_by_value(self):
        for name, mod in self.modules.items():
            declared = classes(self.trees[name])
            for enum in mod.enums:
                body = [node for node in declared[enum.name].body if isinstance(node, ast.Assign)]
                self.assertEqual([(n.targets[0].id, n.value.value) for n in body],
                                 [(py_name(lit), i) for i, lit in enumerate(enum.literals)], f"{name}.{enum.name}")
                for n in body:
                    self.assertFalse(keyword.iskeyword(n.targets[0].id))

    def test_every_operation_has_its_methods(self):
        for name, mod in self.modules.items():
            declared = classes(self.trees[name])
            if not mod.has_interfaces:
                self.assertNotIn("Client", declared)
                continue
            index = 0
            for iface, facade in (("IService", "Client"), ("IClient", "Service")):
                for msg in mod.interfaces[iface]:
                    params = [param_name(p.name) for p in msg.params]
                    received = methods(declared[iface])[msg.name]
                    self.assertEqual([a.arg for a in received.args.args],
                                     ["self"] + params + (["dispose"] if msg.dispose else []))
                    sending = methods(declared[facade])[msg.name]
                    self.assertEqual([a.arg for a in sending.args.args],
                                     ["self"] + params + (["dispose"] if msg.dispose else []))
                    if msg.dispose:
                        self.assertIs(sending.args.defaults[-1].value, False)
                    # The call names the operation's index in the catalogue's table.
                    call = sending.body[-1].value
                    self.assertEqual(call.args[0].value, index, f"{name}.{msg.name}")
                    index += 1


if __name__ == "__main__":
    unittest.main()
