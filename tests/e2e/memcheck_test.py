"""The whole road without a misuse of memory, and with nothing left of it behind."""
import road
import valgrind


class MemcheckTest(valgrind.WholeRoad):
    OPTIONS = valgrind.LEAKS


if __name__ == "__main__":
    road.main()
