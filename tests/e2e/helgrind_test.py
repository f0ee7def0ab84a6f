"""The whole road without a data race, a misuse of locks or locks taken in two orders."""
import pathlib

import road
import valgrind


class HelgrindTest(valgrind.WholeRoad):
    OPTIONS = ("--tool=helgrind",
               f"--suppressions={pathlib.Path(__file__).with_name('helgrind.supp')}")


if __name__ == "__main__":
    road.main()
