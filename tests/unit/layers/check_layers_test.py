"""The layering check refuses each kind of bad include, and passes a tree that has none."""

import importlib.util
import os
import subprocess
import sys
import tempfile
import unittest

CHECKER = os.path.join(os.path.dirname(__file__), "..", "..", "..", "tools", "check-layers.py")


def run_checker(root):
    result = subprocess.run([sys.executable, CHECKER, root], capture_output=True, text=True)
    return result.returncode, result.stdout


class PlantedTree(unittest.TestCase):
    """A small tree laid out like the project; each test plants one include."""

    def setUp(self):
        self.tmp = tempfile.TemporaryDirectory()
        self.root = self.tmp.name
        self.write("core/base/Logging.h", "#pragma once\n#include <QString>\n")
        self.write("core/base/Expected.h", "#pragma once\n#include <variant>\n")
        self.write("core/protocol/WireCodec.h", '#pragma once\n#include "base/Expected.h"\n')
        self.write("core/store/SettingsStore.h", '#pragma once\n#include "base/Logging.h"\n')
        self.write("core/desktop/TextInserter.h", '#pragma once\n#include "store/SettingsStore.h"\n')
        self.write("core/desktop/x11/PasteboardX11.h", '#pragma once\n#include "desktop/TextInserter.h"\n')
        self.write("core/session/SayvoCoordinator.h", '#pragma once\n#include "desktop/TextInserter.h"\n')
        self.write("ui/HUDView.h", '#pragma once\n#include "session/SayvoCoordinator.h"\n')
        self.write("app/AppDelegate.h",
                   '#pragma once\n#include "ui/HUDView.h"\n#include "desktop/x11/PasteboardX11.h"\n')
        self.write("app/main.cpp", '#include "app/AppDelegate.h"\n#include "moc_main.cpp"\n')
        self.write("engine/server/EngineSession.h", '#pragma once\n#include "protocol/WireCodec.h"\n')
        self.write("tests/support/FakeThing.h", '#pragma once\n#include "app/AppDelegate.h"\n')
        self.write("tests/unit/app/AppTest.cpp", '#include "support/FakeThing.h"\n')

    def tearDown(self):
        self.tmp.cleanup()

    def write(self, path, text):
        full = os.path.join(self.root, path)
        os.makedirs(os.path.dirname(full), exist_ok=True)
        with open(full, "w", encoding="utf-8") as handle:
            handle.write(text)

    def assertRefused(self, fragment):
        code, out = run_checker(self.root)
        self.assertEqual(code, 1, out)
        self.assertIn(fragment, out)

    def test_a_layered_tree_passes(self):
        code, out = run_checker(self.root)
        self.assertEqual(code, 0, out)
        self.assertIn("every one downward and named", out)

    def test_an_upward_include_is_refused(self):
        self.write("core/store/Upward.h", '#pragma once\n#include "session/SayvoCoordinator.h"\n')
        self.assertRefused('core/store/Upward.h:2: "session/SayvoCoordinator.h": store (layer 1) '
                           "includes upward from session (layer 2)")

    def test_a_lower_layer_including_the_ui_is_refused(self):
        self.write("core/audio/Meter.cpp", '#include "ui/HUDView.h"\n')
        self.assertRefused("audio (layer 1) includes upward from ui (layer 3)")

    def test_nothing_but_tests_includes_the_app(self):
        self.write("ui/Window.cpp", '#include "app/AppDelegate.h"\n')
        self.assertRefused('ui/Window.cpp:1: "app/AppDelegate.h": only the composition root includes')

    def test_a_sideways_include_is_refused(self):
        self.write("core/audio/Capture.cpp", '#include "desktop/TextInserter.h"\n')
        self.assertRefused("audio includes sideways from desktop")

    def test_a_bare_include_is_refused(self):
        self.write("core/desktop/Helper.cpp", '#include "TextInserter.h"\n')
        self.assertRefused('"TextInserter.h" names no folder')

    def test_an_include_of_no_file_is_refused(self):
        self.write("core/desktop/Helper.cpp", '#include "desktop/Missing.h"\n')
        self.assertRefused('"desktop/Missing.h" is no file under an include root')

    def test_another_subsystems_platform_adapter_is_refused(self):
        self.write("core/session/Glue.cpp", '#include "desktop/x11/PasteboardX11.h"\n')
        self.assertRefused("is a platform adapter of desktop")

    def test_the_engine_shares_only_protocol_and_base(self):
        self.write("engine/server/Bad.cpp", '#include "store/SettingsStore.h"\n')
        self.assertRefused("the reference engine and the client share only")
        self.write("engine/server/Bad.cpp", '#include "engine/server/EngineSession.h"\n')
        self.write("core/session/Bad.cpp", '#include "engine/server/EngineSession.h"\n')
        self.assertRefused("core/session/Bad.cpp:1")

    def test_protocol_reaching_qt_through_base_is_refused(self):
        self.write("core/protocol/Codec.cpp", '#include "base/Logging.h"\n')
        self.assertRefused("core/protocol/Codec.cpp: protocol/ must not use Qt, but reaches it "
                           "through core/base/Logging.h")

    def test_product_code_including_tests_is_refused(self):
        self.write("core/store/Probe.cpp", '#include "tests/support/FakeThing.h"\n')
        self.assertRefused("product code includes test code")


class ProjectTree(unittest.TestCase):
    def test_the_project_itself_is_layered(self):
        code, out = run_checker(os.path.join(os.path.dirname(CHECKER), ".."))
        self.assertEqual(code, 0, out)


if __name__ == "__main__":
    unittest.main()
