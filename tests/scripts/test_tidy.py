"""scripts/tidy looks at several sources in one unit: nothing may get lost by that, and nothing be added."""
import json
import pathlib
import shutil
import subprocess

import pytest

TREE = pathlib.Path(__file__).resolve().parents[2]

HARMLESS = "int {name}(int value)\n{{\n    return value + 1;\n}}\n"
# Only by following the path on which the pointer stays null is this found.
NULL_ON_ONE_PATH = """\
int valueAt(bool known, int* place)
{
    int* chosen = nullptr;
    if (known)
        chosen = place;
    return *chosen;
}
"""
USED_AFTER_MOVE = """\
#include <string>
#include <utility>

namespace {

std::string joined(std::string first)
{
    const std::string second = std::move(first);
    return second + first;
}

} // namespace

std::string twice(const std::string& text)
{
    return joined(text);
}
"""
HEADER_WITH_FINDING = "#pragma once\n\ninline int* nothing()\n{\n    return 0;\n}\n"


class Tree:
    """Sources as a build directory lists them."""

    def __init__(self, root):
        self.root = root
        self.build = root / "build"
        self.commands = []
        self.build.mkdir()
        (root / "Tools").mkdir()
        shutil.copy(TREE / ".clang-tidy", root)

    def add(self, name, text, *flags):
        path = self.root / "Tools" / name
        path.parent.mkdir(exist_ok=True)
        path.write_text(text)
        if path.suffix == ".cpp":
            self.commands.append({"directory": str(self.build), "file": str(path),
                                  "command": f"c++ -std=c++20 {' '.join(flags)} -o {path.stem}.o -c {path}"})

    def tidy(self, *arguments):
        (self.build / "compile_commands.json").write_text(json.dumps(self.commands))
        return subprocess.run([TREE / "scripts/tidy", "--root", self.root, "--build", self.build, *arguments],
                              capture_output=True, text=True, timeout=120, check=False)


@pytest.fixture
def tree(tmp_path):
    tree = Tree(tmp_path)
    for name in ("first", "second", "third"):
        tree.add(f"{name}.cpp", HARMLESS.format(name=name))
    return tree


def findings(run):
    return [line for line in run.stdout.splitlines() if " error: " in line]


def test_sources_without_a_finding_pass(tree):
    run = tree.tidy()
    assert (run.returncode, findings(run)) == (0, [])
    assert "3 sources, no finding" in run.stdout


@pytest.mark.parametrize("text, place, rule", [
    (NULL_ON_ONE_PATH, "faulty.cpp:6:", "clang-analyzer-core.NullDereference"),
    (USED_AFTER_MOVE, "faulty.cpp:9:", "bugprone-use-after-move"),
])
def test_a_finding_in_one_of_several_sources_is_told_with_its_place(tree, text, place, rule):
    tree.add("faulty.cpp", text)
    run = tree.tidy()
    assert run.returncode == 1
    (finding,) = findings(run)
    assert place in finding and rule in finding


def test_a_finding_in_a_header_is_told(tree):
    tree.add("header.h", HEADER_WITH_FINDING)
    tree.add("includer.cpp", '#include "header.h"\n\nint* none()\n{\n    return nothing();\n}\n')
    run = tree.tidy()
    assert run.returncode == 1
    (finding,) = findings(run)
    assert "header.h:5:" in finding and "modernize-use-nullptr" in finding


def test_sources_that_each_keep_a_name_to_themselves_are_no_fault(tree):
    for name, kind in (("length", "int"), ("width", "double")):
        tree.add(f"{name}.cpp", f"namespace {{\n\nstruct Measure {{\n    {kind} value;\n}};\n\n}} // namespace\n\n"
                 f"{kind} {name}()\n{{\n    return Measure{{1}}.value;\n}}\n")
    run = tree.tidy()
    assert (run.returncode, findings(run)) == (0, [])


def test_sources_that_can_not_stand_in_one_unit_are_no_fault(tree):
    for name, value in (("upper", 1), ("lower", 2)):
        tree.add(f"{name}.cpp", f"static int offset()\n{{\n    return {value};\n}}\n\nint {name}()\n{{\n"
                 "    return offset();\n}\n")
    run = tree.tidy()
    assert (run.returncode, findings(run)) == (0, [])


@pytest.mark.parametrize("condition, flags", [("ifdef", ["-DSPECIAL"]), ("ifndef", [])])
def test_each_source_is_looked_at_with_its_own_definitions(tree, condition, flags):
    tree.add("special.cpp", HARMLESS.format(name="special"), "-DSPECIAL")
    tree.add("guarded.cpp", f"#{condition} SPECIAL\n{NULL_ON_ONE_PATH}#endif\n", *flags)
    run = tree.tidy()
    assert run.returncode == 1
    assert "guarded.cpp:7:" in findings(run)[0]


def test_only_the_sources_that_are_asked_for_are_looked_at(tree):
    tree.add("faulty.cpp", NULL_ON_ONE_PATH)
    assert tree.tidy(tree.root / "Tools/first.cpp").returncode == 0
    assert tree.tidy(tree.root / "Tools/faulty.cpp").returncode == 1


def test_a_source_that_the_build_does_not_have_is_an_error(tree):
    run = tree.tidy(tree.root / "Tools/first.cpp", tree.root / "Tools/unknown.cpp")
    assert run.returncode == 1
    assert "no such sources" in run.stderr and "Tools/unknown.cpp" in run.stderr and "first.cpp" not in run.stderr


def test_bundles_that_begin_with_sources_of_one_name_do_not_overwrite_each_other(tmp_path):
    tree = Tree(tmp_path)
    for folder in ("one", "two"):
        for name in ("apart", "beside"):
            tree.add(f"{folder}/{name}.cpp", HARMLESS.format(name=f"{name}_{folder}"), f"-DFOLDER_{folder}")
    assert tree.tidy().returncode == 0
    bundles = list((tree.build / "tidy").iterdir())
    assert len(bundles) == 2 and all(bundle.read_text().count("#include") == 2 for bundle in bundles)
