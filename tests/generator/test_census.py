"""Census of the wire contract: per module, the operations of each interface and the messages of each key
pattern, as the module descriptions state them. A wrong @key, a lost dispose annotation or an operation
declared in the wrong interface changes a number here."""

import os
import sys
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(__file__), "..", "..", "generator"))

from vantrel_gen.idl_reader import load_all  # noqa: E402

IDL_DIR = os.path.join(os.path.dirname(__file__), "..", "..", "idl")

# module: IService ops, IClient ops, messages with no key, keyed by the sending actor only, by the
# sending actor and Key... members, by Key... members only.
EXPECTED = """
M_Common 0 0 0 0 0 0
M_ActuationCtrl 3 2 2 0 2 1
M_Alert 8 6 9 2 3 0
M_Alignment 6 2 7 0 1 0
M_AnalogueIo 2 1 0 0 2 1
M_Auth 1 2 1 0 1 1
M_BuiltInTest 2 5 3 0 4 0
M_BuiltInTestCtrl 4 3 5 2 0 0
M_Camera 40 3 42 1 0 0
M_CameraManager 3 2 3 0 2 0
M_CoordinateFrame 5 9 1 1 7 5
M_Device 8 4 9 2 1 0
M_Dialogue 3 2 4 0 1 0
M_ErrorMemory 3 1 3 0 1 0
M_FileTransfer 4 1 4 0 1 0
M_GenericInputOutput 6 5 7 2 2 0
M_HidCoordInput 1 3 3 1 0 0
M_HidDisplay 8 1 4 0 5 0
M_HidJoystick 2 7 4 0 5 0
M_HidManager 2 1 1 0 2 0
M_HmiAppCtrl 11 4 12 0 3 0
M_ImageComposer 1 3 3 0 1 0
M_ImageFusion 1 2 2 1 0 0
M_ImageProcessing 7 2 8 1 0 0
M_KinematicChain 5 4 7 1 1 0
M_LanguageManager 1 3 1 1 2 0
M_LaserRangeFinder 6 2 6 1 1 0
M_Logging 2 3 3 2 0 0
M_Manipulator 0 3 2 1 0 0
M_MetSensor 1 2 2 1 0 0
M_MissionCtrl 5 4 6 1 2 0
M_Mount 22 6 26 1 1 0
M_MultiMount 9 4 12 1 0 0
M_ObjectManager 6 7 7 2 3 1
M_OverlayCtrl 2 2 1 0 3 0
M_RecordingCtrl 6 2 7 1 0 0
M_ReplayCtrl 6 2 7 1 0 0
M_ScanCtrl 4 4 5 1 2 0
M_SectorSelection 1 3 3 1 0 0
M_Sensor 7 5 8 1 3 0
M_SignalGenerator 6 7 13 0 0 0
M_SignalProcessing 3 3 1 0 5 0
M_Teleoperation 0 3 1 0 2 0
M_TerminalCtrl 5 2 5 2 0 0
M_TimeManager 4 2 4 2 0 0
M_VideoManager 2 2 3 1 0 0
M_VideoMetadata 0 6 6 0 0 0
M_VideoObjectExport 1 5 4 0 2 0
M_VideoTracker 0 0 0 0 0 0
M_VideoTrackerAtr 3 2 4 1 0 0
M_VideoTrackerCommon 3 1 2 0 2 0
M_VideoTrackerLosCtrl 8 5 10 3 0 0
M_VideoTrackerLot 6 1 6 1 0 0
M_Watchdog 1 2 1 0 2 0
"""


def expected():
    table = {}
    for line in EXPECTED.split("\n"):
        if line.strip():
            name, *numbers = line.split()
            table[name] = tuple(int(n) for n in numbers)
    return table


class Census(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.modules = load_all(IDL_DIR)

    def test_every_module_has_its_counts(self):
        table = expected()
        self.assertEqual(sorted(self.modules), sorted(table))
        for name, mod in self.modules.items():
            messages = mod.interfaces["IService"] + mod.interfaces["IClient"]
            patterns = [m.key_pattern for m in messages]
            got = (len(mod.interfaces["IService"]), len(mod.interfaces["IClient"]), patterns.count("none"),
                   patterns.count("actor"), patterns.count("actor+key"), patterns.count("key"))
            self.assertEqual(got, table[name], name)

    def test_whole_contract(self):
        messages = [m for mod in self.modules.values() for i in ("IService", "IClient") for m in mod.interfaces[i]]
        patterns = [m.key_pattern for m in messages]
        self.assertEqual(len(messages), 424)
        self.assertEqual((patterns.count("none"), patterns.count("actor"), patterns.count("actor+key"),
                          patterns.count("key")), (300, 40, 75, 9))

    def test_dispose_flag_only_on_messages_keyed_by_the_sender(self):
        for mod in self.modules.values():
            for i in ("IService", "IClient"):
                for m in mod.interfaces[i]:
                    if m.dispose:
                        self.assertIn(m.key_pattern, ("actor", "actor+key"), f"{mod.name}::{i}::{m.name}")

    def test_types_only_modules(self):
        self.assertFalse(self.modules["M_Common"].has_interfaces)
        self.assertFalse(self.modules["M_VideoTracker"].has_interfaces)


if __name__ == "__main__":
    unittest.main()
