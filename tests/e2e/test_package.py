"""The README's examples, run against an installed copy: the C++ one built as
a consumer project of the CMake package, the Python one with the installed
module. Their outputs are the README's, worked out from the example's
values."""

import gzip
import os
import re
import subprocess
import sys
import tempfile
import unittest

SOURCE = os.environ["STRIX_SOURCE_DIR"]
BUILD = os.path.dirname(os.environ["STRIX"])
EXAMPLE = os.path.join(SOURCE, "examples", "example.b")


def readme_blocks():
    """(language, text) of every fenced block of the README, in order."""
    with open(os.path.join(SOURCE, "README.md")) as f:
        return re.findall(r"```(\w*)\n(.*?)```", f.read(), re.S)


def section(blocks, first):
    """The block of `first` language in the README's "Use from" sections and
    the unlabelled block that follows it (its output)."""
    i = next(i for i, (lang, _) in enumerate(blocks) if lang == first)
    return blocks[i][1], blocks[i + 1][1]


class Installed(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.dir = tempfile.TemporaryDirectory(prefix="strix-package-")
        cls.prefix = os.path.join(cls.dir.name, "prefix")
        subprocess.run(["cmake", "--install", BUILD, "--prefix", cls.prefix], check=True,
                       capture_output=True)
        cls.blocks = readme_blocks()

    @classmethod
    def tearDownClass(cls):
        cls.dir.cleanup()

    def run_ok(self, args, **kw):
        p = subprocess.run(args, capture_output=True, text=True, **kw)
        self.assertEqual(p.returncode, 0, p.stderr)
        return p.stdout

    def test_cpp_consumer(self):
        cmake = next(text for lang, text in self.blocks if lang == "cmake")
        code, expected = section(self.blocks, "cpp")
        app = os.path.join(self.dir.name, "app")
        os.makedirs(app)
        with open(os.path.join(app, "CMakeLists.txt"), "w") as f:
            f.write("cmake_minimum_required(VERSION 3.25)\nproject(app CXX)\n" + cmake)
        with open(os.path.join(app, "app.cpp"), "w") as f:
            f.write(code)
        self.run_ok(["cmake", "-S", app, "-B", app + "/build", "-DCMAKE_PREFIX_PATH=" + self.prefix])
        self.run_ok(["cmake", "--build", app + "/build"])
        self.assertEqual(self.run_ok([app + "/build/app", EXAMPLE]), expected)

    def test_python_module(self):
        code, expected = section(self.blocks, "python")
        work = os.path.join(self.dir.name, "py")
        os.makedirs(os.path.join(work, "examples"))
        os.symlink(EXAMPLE, os.path.join(work, "examples", "example.b"))
        env = dict(os.environ, PYTHONPATH=os.path.join(self.prefix, "lib/python3/dist-packages"))
        self.assertEqual(self.run_ok([sys.executable, "-c", code], cwd=work, env=env), expected)
        command = self.run_ok([os.environ["STRIX"], EXAMPLE, "-.json"])
        with gzip.open(os.path.join(work, "example.json.gz"), "rt") as f:
            self.assertEqual(f.read(), command)


if __name__ == "__main__":
    unittest.main()
