#!/usr/bin/env python3
"""Installs a build, then builds and runs the programs of the README against what was installed, by CMake and by pkg-config.

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

    work = given.work.resolve()
    shutil.rmtree(work, ignore_errors=True)
    installed = work / "installed"
    call("cmake", "--install", given.build, "--prefix", installed)
    # Nothing may point back to where the tree was first put.
    root = work / "moved"
    installed.rename(root)

    # What the README shows must work as it stands there.
    readme = (HERE.parent.parent / "README.md").read_text()
    for suffix, end in (("c", ""), ("cpp", "int main() { Bitmap bitmap; return bitmap.Flags == 0 ? 0 : 1; }\n")):
        text = re.search(rf"^```{suffix}\n(.*?)^```", readme, re.MULTILINE | re.DOTALL)[1]
        (work / f"readme.{suffix}").write_text(text + end)

    by_cmake = work / "cmake"
    toolchain = [f"-DCMAKE_TOOLCHAIN_FILE={given.toolchain.resolve()}"] if given.toolchain else []
    call("cmake", "-S", HERE, "-B", by_cmake, "-G", "Ninja", f"-Drvkrn_ROOT={root}", f"-DCONSUMER_SOURCES={work}",
         "-DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=BOTH", *toolchain)
    call("cmake", "--build", by_cmake)

    by_pc = work / "pkg-config"
    by_pc.mkdir()
    pc_dir = next(root.glob("lib/**/rvkrn.pc")).parent
    found_by = {**os.environ, "PKG_CONFIG_PATH": str(pc_dir)}
    flags = call("pkg-config", "--cflags", "--libs", "rvkrn", env=found_by).split()
    flags += ["-Wall", "-Wextra", "-Wpedantic", "-Werror"]
    if runner:  # The compiler's run-time libraries are not where Windows would look for them.
        flags += ["-static-libgcc", "-static-libstdc++", "-Wl,-Bstatic,-lstdc++,-lpthread,-Bdynamic"]
    exe = ".exe" if runner else ""
    for compiler, standard, suffix in ((given.cc, "c11", "c"), (given.cxx, "c++20", "cpp")):
        program = by_pc / f"readme_{suffix}{exe}"
        call(compiler, f"-std={standard}", work / f"readme.{suffix}", "-o", program, *flags)
        for built in (by_cmake, by_pc):
            run(built / program.name, root, runner)


if __name__ == "__main__":
    main()
