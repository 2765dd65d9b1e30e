#!/usr/bin/env python3
"""Tests scripts/check-names: CHECK_NAMES is run over small trees, each with one fault in it."""
import os
import subprocess
import sys
import tempfile
import unittest

CHECK_NAMES = sys.argv.pop(1)

# Two modules and the tests of one, without a fault.
SOUND = {
    "A/CMakeLists.txt": "vimble_module(A)\nvimble_tests(ATests LINKS A)\n",
    "A/A/Door.h": "/// A door.\nclass Door {\npublic:\n    void open();\n};\n",
    "A/A/Door.cpp": '#include "A/Door.h"\n\nnamespace {\nvoid help() {}\n}\n\nvoid Door::open() { help(); }\n',
    "A/Tests/DoorTests.cpp": '#include "A/Door.h"\n\nTEST(DoorTest, IsOpen) { Door().open(); }\n',
    "B/CMakeLists.txt": "vimble_module(B PUBLIC A)\n",
    "B/B/House.h": '#include "A/Door.h"\n\nstruct House {\n    Door door;\n};\n',
    "B/B/House.cpp": '#include "B/House.h"\n\nnamespace {\nvoid help() {}\n}\n\nvoid enter(House& house) { house.door.open(); }\n',
    "B/main.cpp": '#include "B/House.h"\n\nint main() {\n    House house;\n    enter(house);\n}\n',
}


def listing(name):
    return f"# A house\n\n## Surface without a caller\n\n- `{name}`: for later\n\n## The `Door::wide`\n\n- `Door::wide`: no\n"


class CheckNamesTests(unittest.TestCase):
    def complaints(self, changes):
        with tempfile.TemporaryDirectory() as root:
            for path, text in {**SOUND, **changes}.items():
                os.makedirs(os.path.join(root, os.path.dirname(path)), exist_ok=True)
                with open(os.path.join(root, path), "w", encoding="utf-8") as file:
                    file.write(text)
            run = subprocess.run([CHECK_NAMES, root], stdout=subprocess.PIPE, text=True, check=False)
        lines = run.stdout.splitlines()
        self.assertEqual(run.returncode, 1 if lines else 0)
        return lines

    def assertOneComplaint(self, changes, *words):
        lines = self.complaints(changes)
        self.assertEqual(len(lines), 1, lines)
        for word in words:
            self.assertIn(word, lines[0])

    def testASoundTreePasses(self):
        self.assertEqual(self.complaints({}), [])

    def testAClassOfTwoModulesIsFound(self):
        self.assertOneComplaint({"B/B/Garden.cpp": "class Door {};\n"}, "`Door`", "A/A/Door.h:2", "B/B/Garden.cpp:1")

    def testAFunctionOfTwoModulesIsFound(self):
        self.assertOneComplaint({"A/A/Lock.cpp": "int enter() { return 1; }\n"}, "`enter`", "A/A/Lock.cpp:1")

    def testAClassThatOneModuleDefinesTwiceIsFound(self):
        self.assertOneComplaint({"A/A/Lock.cpp": "class Door {};\n"}, "`Door`", "A/A/Lock.cpp:1")

    def testAnAliasWithTheNameOfAClassIsFound(self):
        self.assertOneComplaint({"B/B/Garden.cpp": "using Door = int;\n"}, "`Door`", "B/B/Garden.cpp:1")

    def testAHelperOfATestWithTheNameOfAClassIsFound(self):
        self.assertOneComplaint({"B/Tests/HouseTests.cpp": "struct House {};\n"}, "`House`", "B/Tests/HouseTests.cpp:1")

    def testHelpersOfTwoTestsMayHaveOneName(self):
        helper = "class Helper {};\n"
        self.assertEqual(self.complaints({"A/Tests/HelpTests.cpp": helper, "B/Tests/HelpTests.cpp": helper}), [])

    def testNamesInAnonymousNamespacesDoNotCount(self):
        hidden = "namespace {\nclass Door {};\nvoid enter() {}\n}\n"
        self.assertEqual(self.complaints({"B/B/Garden.cpp": hidden, "A/Tests/Garden.cpp": hidden}), [])

    def testNamesInDifferentNamespacesAreDifferent(self):
        self.assertEqual(self.complaints({"B/B/Garden.cpp": "namespace Garden {\nclass Door {};\n}\n"}), [])

    def testTwoHeadersOfOneNameAreFound(self):
        self.assertOneComplaint({"B/B/Door.h": "#pragma once\n"}, "A/A/Door.h", "B/B/Door.h")

    def testAFunctionThatNoProgramCallsIsFound(self):
        header = SOUND["A/A/Door.h"].replace("open();", "open();\n    void close();")
        source = SOUND["A/A/Door.cpp"] + "\nvoid Door::close() { close(); }  // close\n"
        test = "TEST(DoorTest, Closes) { Door().close(); }\n"
        self.assertOneComplaint({"A/A/Door.h": header, "A/A/Door.cpp": source, "A/Tests/CloseTests.cpp": test},
                                "nothing uses `Door::close`", "A/A/Door.h:5")

    def testWhatAnObjectTellsOfItselfMayBeForTestsAlone(self):
        header = SOUND["A/A/Door.h"].replace("open();", "open();\n    bool isOpen() const { return true; }")
        self.assertOneComplaint({"A/A/Door.h": header}, "`Door::isOpen`")
        test = "TEST(DoorTest, IsOpen) { Door().isOpen(); }\n"
        self.assertEqual(self.complaints({"A/A/Door.h": header, "A/Tests/OpenTests.cpp": test}), [])

    def testAClassThatOnlyItsOwnMembersNameIsFound(self):
        header = "class Lock {\npublic:\n    Lock();\n    Lock* next();\n};\n"
        source = "Lock::Lock() { next(); }\nLock* Lock::next() { return new Lock; }\n"
        self.assertOneComplaint({"A/A/Lock.h": header, "A/A/Lock.cpp": source}, "nothing uses `Lock`")

    def testAFieldThatIsOnlyInitialisedIsFound(self):
        header = "struct House {\n    House(int a) : size(a), count(0) {}\n    Door door;\n    int size, count;\n};\n"
        header += "inline int sizeOf(const House& house) { return house.size; }\nvoid enter(House& house);\n"
        self.assertOneComplaint({"B/B/House.h": header, "B/B/Use.cpp": "void f() { sizeOf(House(1)); }\n"},
                                "nothing uses `House::count`")

    def testAnEnumeratorThatNobodyNamesIsFound(self):
        header = "enum class Colour { red, green };\n"
        self.assertOneComplaint({"A/A/Colour.h": header, "B/B/Paint.cpp": "auto colour = Colour::red;\n"},
                                "nothing uses `Colour::green`")

    def testWhatHelpsTestsIsUsedByThem(self):
        module = {"Tests/CMakeLists.txt": "vimble_module(Help)\n", "Tests/Help/FakeDoor.h": "class FakeDoor {};\n"}
        self.assertOneComplaint(module, "nothing uses `FakeDoor`")
        self.assertEqual(self.complaints({**module, "A/Tests/FakeTests.cpp": "FakeDoor door;\n"}), [])

    def testWhatIsListedNeedsNoCaller(self):
        header = SOUND["A/A/Door.h"].replace("open();", "open();\n    void close();")
        self.assertEqual(self.complaints({"A/A/Door.h": header, "ARCHITECTURE.md": listing("Door::close")}), [])

    def testAListedClassStandsForItsMembers(self):
        header = "class Lock {\npublic:\n    void turn();\n};\n"
        self.assertEqual(self.complaints({"A/A/Lock.h": header, "ARCHITECTURE.md": listing("Lock")}), [])

    def testWhatIsListedAndUsedIsFound(self):
        self.assertOneComplaint({"ARCHITECTURE.md": listing("Door::open")}, "`Door::open`", "is used")

    def testWhatIsListedAndGoneIsFound(self):
        self.assertOneComplaint({"ARCHITECTURE.md": listing("Door::slam")}, "`Door::slam`", "no header")

    def testATreeWithoutSourcesIsRefused(self):
        with tempfile.TemporaryDirectory() as root:
            run = subprocess.run([CHECK_NAMES, root], stdout=subprocess.PIPE, text=True, check=False)
        self.assertEqual(run.returncode, 1)
        self.assertIn("no sources", run.stdout)


unittest.main()
