"""What the plug-in shows to the host's linker."""
import pathlib
import subprocess
import unittest

import road


def read(*command):
    return subprocess.run([*command, road.PLUGIN], check=True, capture_output=True, text=True).stdout


class ExportedNamesTest(unittest.TestCase):
    def test_eight_names_and_no_other(self):
        names = [line.split()[-1] for line in read("nm", "-D", "--defined-only").splitlines()]
        self.assertEqual(sorted(names), "Close IOCTL Load Open Read Seek Unload Write".split())

    def test_is_hardened_32_bit_code(self):
        self.assertRegex(read("readelf", "-hW"), r"(?s)Class:\s+ELF32\n.*Type:\s+DYN ")
        dynamic = read("readelf", "-dW")
        self.assertNotRegex(dynamic, "TEXTREL|RPATH|RUNPATH")
        self.assertIn("BIND_NOW", dynamic)
        self.assertRegex(read("readelf", "-lW"), r"(?s)(?=.*GNU_RELRO).*GNU_STACK[^\n]* RW ")
        self.assertIn("__stack_chk_fail", read("nm", "-D", "--undefined-only"))

    def test_tells_nothing_of_the_machine_that_built_it(self):
        content = pathlib.Path(road.PLUGIN).read_bytes()
        for path in (bytes(road.DEMO.parent), b"build/deps"):
            self.assertNotIn(path, content)
