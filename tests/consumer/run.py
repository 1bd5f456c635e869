#!/usr/bin/env python3
"""Installs a build, then builds and runs the consumers against what was installed, by CMake and by pkg-config.

usage: run.py --build DIR --work DIR [--toolchain FILE --cc CC --cxx CXX --runner PROGRAM]
"""
import argparse
import os
import pathlib
import re
import shutil
import subprocess
import sys

HERE = pathlib.Path(__file__).resolve().parent


def call(*command, **options):
    command = [str(word) for word in command]
    done = subprocess.run(command, text=True, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, **options)
    if done.returncode != 0:
        sys.exit(f"{' '.join(command)}\n{done.stdout}\nended with {done.returncode}")
    return done.stdout


def run(program, root, runner):
    environment = dict(os.environ)
    if runner:  # a program of the other platform finds the library beside itself
        shutil.copy2(root / "bin" / "rvkrnX.DLL", program.parent)
    else:
        environment["LD_LIBRARY_PATH"] = str(next(root.glob("lib/**/librvkrn.so")).parent)
    print(f"{program.name}: {call(*runner, program, env=environment).split()}")


def main():
    options = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    options.add_argument("--build", required=True, type=pathlib.Path)
    options.add_argument("--work", required=True, type=pathlib.Path)
    options.add_argument("--toolchain", type=pathlib.Path)
    options.add_argument("--cc", default="cc")
    options.add_argument("--cxx", default="c++")
    options.add_argument("--runner", default="")
    given = options.parse_args()
    runner = given.runner.split()
    suffix = ".exe" if runner else ""

    work = given.work.resolve()
    shutil.rmtree(work, ignore_errors=True)
    installed = work / "installed"
    call("cmake", "--install", given.build, "--prefix", installed)
    # Nothing may point back to where the tree was first put.
    root = work / "moved"
    installed.rename(root)

    by_cmake = work / "cmake"
    toolchain = [f"-DCMAKE_TOOLCHAIN_FILE={given.toolchain.resolve()}"] if given.toolchain else []
    call("cmake", "-S", HERE, "-B", by_cmake, "-G", "Ninja", f"-Drvkrn_ROOT={root}",
         "-DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=BOTH", *toolchain)
    call("cmake", "--build", by_cmake)

    by_pc = work / "pkg-config"
    by_pc.mkdir()
    pc_dir = next(root.glob("lib/**/rvkrn.pc")).parent
    found_by = {**os.environ, "PKG_CONFIG_PATH": str(pc_dir)}
    flags = call("pkg-config", "--cflags", "--libs", "rvkrn", env=found_by).split()
    warnings = ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
    # The compiler's run-time libraries are not where Windows would look for them.
    static = ["-static-libgcc", "-static-libstdc++", "-Wl,-Bstatic,-lstdc++,-lpthread,-Bdynamic"] if runner else []
    flags += static
    for compiler, standard, source in ((given.cc, "c11", "consumer.c"), (given.cxx, "c++20", "consumer.cpp")):
        program = by_pc / f"{source.replace('.', '_')}{suffix}"
        call(compiler, f"-std={standard}", *warnings, HERE / source, "-o", program, *flags)

    # What the README shows must work as it stands there.
    readme = (HERE.parent.parent / "README.md").read_text()
    (by_pc / "readme.c").write_text(re.search(r"^```c\n(.*?)^```", readme, re.MULTILINE | re.DOTALL)[1])
    (by_pc / "readme.cpp").write_text(re.search(r"^```cpp\n(.*?)^```", readme, re.MULTILINE | re.DOTALL)[1]
                                      + "int main() { Bitmap bitmap; return bitmap.Flags == 0 ? 0 : 1; }\n")
    for compiler, source in ((given.cc, "readme.c"), (given.cxx, "readme.cpp")):
        call(compiler, *warnings, by_pc / source, "-o", by_pc / f"{source.replace('.', '_')}{suffix}", *flags)

    for built, names in ((by_cmake, ("consumer_c", "consumer_cpp")),
                         (by_pc, ("consumer_c", "consumer_cpp", "readme_c", "readme_cpp"))):
        for name in names:
            run(built / (name + suffix), root, runner)


if __name__ == "__main__":
    main()
