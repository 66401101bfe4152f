"""Programs that are built with an installed copy of the logging library, and what they do."""
import pathlib

from support import BUILD, SOURCES, Folder, run

EXAMPLES = ("smallest", "levels", "loggers", "formatter")


class LoggingFolder(Folder):
    """A test with an installed copy of the logging library in `self.prefix`, and of nothing else."""

    def setUp(self):
        super().setUp()
        self.prefix = self.folder / "prefix"
        status, said = run("cmake", "--install", BUILD, "--prefix", self.prefix, "--component", "logging")
        self.assertEqual(0, status, said)
        self.libraries = next(self.prefix.rglob("libkelto-logging.so")).parent
        self.environment = {"XDG_STATE_HOME": str(self.folder / "state"), "HOME": str(self.folder), "TMPDIR": str(self.folder),
                            "XDG_RUNTIME_DIR": str(self.folder), "LD_LIBRARY_PATH": str(self.libraries)}

    def flags(self, *options):
        status, said = run("pkg-config", "kelto-logging", *options,
                           environment={"PKG_CONFIG_PATH": str(self.libraries / "pkgconfig")})
        self.assertEqual(0, status, said)
        return said.split()

    def compiled(self, compiler, source, *options, library=True):
        """The program that `compiler` makes of one file, by the flags of pkg-config, without a warning."""
        program = self.folder / pathlib.Path(source).stem
        flags = self.flags("--cflags", *(["--libs"] if library else []))
        status, said = run(compiler, "-std=c++20", "-Wall", source, "-o", program, *flags, *options)
        self.assertEqual((0, ""), (status, said))
        return program

    def built_examples(self, compiler, *settings):
        """The folder of the examples as find_package() has them built, without a warning."""
        place = self.folder / "examples"
        status, said = run("cmake", "-S", SOURCES / "examples/logging", "-B", place, "-G", "Ninja",
                           f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DCMAKE_CXX_COMPILER={compiler}", "-DCMAKE_CXX_FLAGS=-Wall",
                           *settings)
        self.assertEqual(0, status, said)
        status, said = run("cmake", "--build", place, "--verbose")
        self.assertEqual(0, status, said)
        self.assertNotIn("warning", said)
        self.assertNotIn(str(SOURCES / "logging"), said)
        return place

    def ran(self, program, *arguments, **environment):
        status, said = run(program, *arguments, environment=self.environment | environment)
        self.assertEqual(0, status, said)
        return said

    def lines_in(self, folder):
        """The lines of all log files of a folder, without their time stamps."""
        files = sorted(pathlib.Path(folder).glob("log-*.txt"))
        return [line.split("  ", 1)[-1] for file in files for line in file.read_text().splitlines()]

    def logs_of(self, name):
        return self.folder / "state/Library/Logs" / name

    def expect_examples(self, place):
        """They do as their comments promise."""
        self.ran(place / "smallest", "one", "two")
        self.assertEqual([f"{place}/smallest has 2 arguments"], self.lines_in(self.logs_of("smallest")))
        self.ran(place / "levels")
        self.assertEqual(["nobody is here", "the end"], self.lines_in(self.logs_of("levels")))
        self.ran(place / "levels", LOG_LEVEL="error")
        self.assertEqual(["the end"], self.lines_in(self.logs_of("levels"))[2:])
        self.ran(place / "levels", LOG_LEVEL="info")
        self.assertEqual(["0 arguments", "nobody is here", "the end"], self.lines_in(self.logs_of("levels"))[3:])
        self.ran(place / "loggers", self.folder / "one", self.folder / "other")
        for folder in ("one", "other"):
            self.assertEqual([f"record {i}" for i in range(1000)], self.lines_in(self.folder / folder))
        self.ran(place / "formatter")
        self.assertEqual(["W formatter:22 7% of the disk are left", "E formatter:23 the disk is full"],
                         self.lines_in(self.logs_of("formatter")))
