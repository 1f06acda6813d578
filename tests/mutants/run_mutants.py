#!/usr/bin/env python3
"""How much of the module the native suite holds: puts one small fault at a time into `src`, rebuilds what holds it, and
runs the suite until a case fails. Started as `./run mutants`, in the repository, after native-debug has been built."""

import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import queue
import re
import resource
import shlex
import shutil
import signal
import subprocess
import sys
import tempfile
import time

import rules

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = ROOT / "build/native-debug"
WORK = ROOT / "build/mutants"
# Mutants that survive, with the reason; "same": no run of the module can tell them from the original.
SURVIVORS = pathlib.Path(__file__).with_name("survivors.json")
SILENCE = 30  # seconds that one case may take
PROGRAMS = ("velomira_tests", "velomira", "velomira-host")
WANTED = 95  # per cent


def output_of(*command):
    return subprocess.run(command, cwd=BUILD, capture_output=True, text=True, check=True).stdout


class Build:
    """What native-debug has built: how each object is compiled, what it depends on, how the programs are linked."""

    def __init__(self):
        self.compile, self.source = {}, {}
        for entry in json.loads((BUILD / "compile_commands.json").read_text()):
            command = shlex.split(entry["command"])
            one = command[command.index("-o") + 1]
            self.compile[one], self.source[one] = command, entry["file"]
        self.link = {}
        for name in PROGRAMS:
            command = output_of("ninja", "-t", "commands", name).splitlines()[-1].replace("\\$", "$")  # no shell is there
            self.link[name] = shlex.split(command)[2:-2]
        parts = set().union(*self.link.values())
        for one in [one for one in self.compile if not {one, archive_of(one)} & parts]:
            del self.compile[one], self.source[one]
        self.needs, needed = {}, None
        for line in output_of("ninja", "-t", "deps").splitlines():
            if line and not line.startswith(" "):
                needed = self.needs.setdefault(line.split(":")[0], set())
            elif line:
                needed.add(os.path.normpath(BUILD / line.strip()))

    def objects(self, mutant):
        """The objects that a mutant changes. An inline function is the program's first one of its name, so that only
        a changed constant changes the tests and the host as well."""
        file = str(ROOT / mutant.file)
        if mutant.file.endswith(".cpp"):
            return [one for one, source in self.source.items() if source == file]
        names = names_reached(mutant)
        constant = mutant.rule in ("number", "text", "constant", "arithmetic") and re.match(
            r".*\b(constexpr|const) |\w+ = \w+,", mutant.text)
        return [one for one, needs in self.needs.items()
                if file in needs and one in self.compile and
                (constant or self.source[one].startswith(str(ROOT / "src"))) and self.mentions(one, names)]

    def mentions(self, one, names):
        own = [path for path in self.needs[one] | {self.source[one]}
               if path.startswith(str(ROOT)) and not path.startswith((str(ROOT / "src"), str(BUILD)))]
        return any(names & words(pathlib.Path(path).read_text()) for path in own + [self.source[one]])


def archive_of(one):
    return re.sub(r"CMakeFiles/(\w+)\.dir/.*", r"lib\1.a", one)


def words(text):
    return set(re.findall(r"\w+", text))


def names_reached(mutant):
    """What a mutant's definition in a header is called, and the definitions of other headers that use it."""
    chunks = []
    for header in ROOT.glob("src/**/*.h"):
        code = rules.mask(header.read_text())
        begins = [match.start() for match in re.finditer(r"^(?=\w)(?!public|private|protected|namespace)", code, re.M)]
        for begin, end in zip(begins, begins[1:] + [len(code)]):
            defined = re.findall(r"(\w+)(?=\(| =|\{| \{|::| :)", code[begin:end].split("\n")[0])
            chunks.append((header, begin, end, set(defined), words(code[begin:end])))
    names = set()
    for header, begin, end, defined, _ in chunks:
        if header == ROOT / mutant.file and begin <= mutant.start < end:
            names |= defined
    while True:
        more = set().union(*(defined for _, _, _, defined, used in chunks if names & used)) - names
        if not more:
            return names
        names |= more


class Suite:
    """The cases of the native suite, by the test file that holds them, and the two tests of the host tool."""

    def __init__(self):
        self.cases, suite = [], ""
        for line in output_of(BUILD / "bin/velomira_tests", "--gtest_list_tests").splitlines():
            if not line.startswith(" "):
                suite = line.split()[0]
            elif suite:
                self.cases.append(suite + line.split()[0])
        self.files = {}
        for file in sorted((ROOT / "tests").glob("*/*_test.cpp")):
            for suite in re.findall(r"^TEST(?:_F|_P)?\((\w+),", file.read_text(), re.M):
                self.files.setdefault(suite, []).append(str(file.relative_to(ROOT / "tests")))

    def stages(self, file):
        """All cases in three groups: of the mutated file, of its folder, the others."""
        folder, stem = pathlib.Path(file).parts[1], pathlib.Path(file).stem
        groups = [], [], []
        for case in self.cases:
            held = self.files.get(case.split(".")[0].split("/")[-1], self.files.get(case.split("/")[0], []))
            near = any(one.startswith(f"{folder}/{stem}") for one in held)
            groups[0 if near else 1 if any(one.startswith(folder + "/") for one in held) else 2].append(case)
        return [group for group in groups if group]


class Worker:
    """One place to build and run a mutant in."""

    def __init__(self, number, build, suite):
        self.build, self.suite = build, suite
        self.folder = WORK / f"worker-{number}"
        shutil.rmtree(self.folder, ignore_errors=True)
        (self.folder / "bin").mkdir(parents=True)
        (self.folder / "bin/libplatform.so").symlink_to(BUILD / "bin/libplatform.so")  # which no mutant changes
        memory = "/dev/shm" if os.access("/dev/shm", os.W_OK) else None
        self.temporary = pathlib.Path(tempfile.mkdtemp(prefix="velomira-mutants-", dir=memory))

    def close(self):
        shutil.rmtree(self.temporary, ignore_errors=True)
        shutil.rmtree(self.folder, ignore_errors=True)

    def make(self, mutant):
        """Builds the programs with the mutant in them, or without one. False when it does not compile."""
        tree, made = self.folder / "tree", {}
        shutil.rmtree(tree, ignore_errors=True)
        if mutant:
            source = (ROOT / mutant.file).read_text()
            file = tree / mutant.file
            file.parent.mkdir(parents=True)
            file.write_text(source[:mutant.start] + mutant.replacement + source[mutant.end:])
            for number, one in enumerate(self.build.objects(mutant)):
                made[one] = str(self.folder / f"{number}.o")
                command = [made[one] if part == one else str(file) if part == str(ROOT / mutant.file) else part
                           for part in self.build.compile[one]]
                command[1:1] = ["-I", str(tree / "src")]
                command += ["-w", f"-ffile-prefix-map={tree}=."]
                if subprocess.run(command, cwd=BUILD, capture_output=True).returncode != 0:
                    return False
        for name in PROGRAMS:
            self.link(name, made)
        return True

    def link(self, name, made):
        """Links a program; what was made anew takes its object's place, or comes first when it is of an archive,
        so that its inline functions are the program's."""
        command = [made.get(part, part) for part in self.build.link[name]]
        output = command.index("-o") + 1
        held = [new for one, new in made.items() if archive_of(one) in command]
        program = self.folder / command[output]
        program.unlink(missing_ok=True)
        command[output] = str(program)
        subprocess.run(command[:1] + held + command[1:] + ["-fuse-ld=lld", "-Wl,--strip-debug"], cwd=BUILD,
                       capture_output=True, check=True)

    def killers(self, mutant, every):
        """The cases that fail, the first one alone unless every one is asked for."""
        found = []
        for group in self.suite.stages(mutant.file if mutant else "src/none"):
            found += self.failing(group, every)
            if found and not every:
                return found
        for version in ("6.0", "6.1", "6.3"):
            cases = [case for case in self.suite.cases
                     if case.startswith("FileAssociation") or case == "Registration.WritesTheWholeHive"]
            found += [f"{case} on {version}" for case in
                      self.failing(cases, every, {"PLATFORM_WINDOWS_VERSION": version})]
            if found and not every:
                return found
        for tool, command, script in (("Story", "run", "/dev/null"),
                                      ("HostShell", "shell", ROOT / "tests/host/shell_script.txt")):
            code, _ = self.run([str(self.folder / "bin/velomira-host"), command, "--catalogue",
                                str(ROOT / "examples/catalogue"), "--guest", str(self.temporary / tool)], {}, script)
            if code != 0:
                found.append(tool)
                if not every:
                    break
        return found

    def failing(self, cases, every, environment=None):
        """Which of the cases fail. After one that ends the program or hangs, the remaining ones are run anew."""
        found = []
        while cases:
            command = [str(self.folder / "bin/velomira_tests"), "--gtest_filter=" + ":".join(cases)]
            code, text = self.run(command + ([] if every else ["--gtest_fail_fast"]), environment or {})
            found += dict.fromkeys(re.findall(r"^\[  FAILED  \] ([\w./]+)[^\n]*\(\d+ ms\)$", text, re.M))
            started = re.findall(r"^\[ RUN      \] ([\w./]+)$", text, re.M)
            if "[==========]" in text.rsplit("[ RUN", 1)[-1] and (code == 0) == (not found):
                return found
            if not started:
                return found + ["the start of the program"]
            if started[-1] not in found:
                found.append(started[-1])
            if not every:
                return found
            cases = [case for case in cases if case not in started]
        return found

    def run(self, command, environment, script="/dev/null"):
        """Runs a program until it ends or has been silent for too long; its code and what it said."""
        shutil.rmtree(self.temporary, ignore_errors=True)
        self.temporary.mkdir()

        def limit():
            resource.setrlimit(resource.RLIMIT_AS, (4 << 30, 4 << 30))
            resource.setrlimit(resource.RLIMIT_FSIZE, (64 << 20, 64 << 20))
            resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
        log = self.folder / "output"
        with open(log, "wb") as output, open(script, "rb") as typed:
            process = subprocess.Popen(command, cwd=BUILD / "tests", env={**os.environ, "TMPDIR": str(self.temporary),
                                       **environment}, stdin=typed, stdout=output, stderr=subprocess.STDOUT,
                                       start_new_session=True, preexec_fn=limit)
            size, since = 0, time.monotonic()
            while process.poll() is None and time.monotonic() - since < SILENCE:
                time.sleep(0.02)
                if log.stat().st_size != size:
                    size, since = log.stat().st_size, time.monotonic()
            try:
                os.killpg(process.pid, signal.SIGKILL)  # a program that hangs, or what one has left behind
            except ProcessLookupError:
                pass
            return process.wait(), log.read_text(errors="replace")


def try_mutant(workers, mutant, every):
    worker = workers.get()
    try:
        entry = mutant._asdict()
        for internal in ("start", "end", "replacement"):
            del entry[internal]
        if not worker.make(mutant):
            return {**entry, "state": "does not compile"}
        found = worker.killers(mutant, every)
        return {**entry, "state": "killed" if found else "survived", "killers": found}
    finally:
        workers.put(worker)


def place(entry):
    return f'{entry["file"]}:{entry["line"]} ({entry["rule"]})\n    - {entry["text"]}\n    + {entry["becomes"]}'


def compare(entries, old):
    """Prints which mutants that were killed survive; their number."""
    now = {rules.identity(entry): entry for entry in entries if entry["state"] == "survived"}
    lost = [entry for entry in old if entry["state"] == "killed" and rules.identity(entry) in now]
    for entry in lost:
        print(f'survives now, was killed by {entry["killers"][0]}: {place(now[rules.identity(entry)])}')
    print(f"{len(lost)} mutants that were killed survive")
    return len(lost)


def summary(entries, accepted, every):
    """Prints who kills what and what survives. True when enough are killed and each survivor has its reason."""
    kills = collections.Counter(case for entry in entries for case in entry.get("killers", []))
    print("\nkills by case" if every else "\nfirst kills by case")
    for case, count in kills.most_common():
        print(f"{count:5} {case}")
    mutants = [entry for entry in entries if entry["state"] != "does not compile"]
    survivors = [entry for entry in mutants if entry["state"] == "survived"]
    known = [accepted[rules.identity(entry)] for entry in survivors if rules.identity(entry) in accepted]
    print(f"\n{len(survivors)} survivors")
    for entry in survivors:
        print(place(entry) + f'\n    {accepted.get(rules.identity(entry), {}).get("reason", "no reason is given")}')
    killed = len(mutants) - len(survivors)
    faults = len(mutants) - sum(entry["same"] for entry in known)
    share = 100 * killed / max(1, faults)
    print(f"\n{len(mutants)} mutants, {killed} killed: {100 * killed / max(1, len(mutants)):.1f} %; without the "
          f"{len(mutants) - faults} that behave the same {share:.1f} %; survivors without a reason: "
          f"{len(survivors) - len(known)}; {len(entries) - len(mutants)} changes do not compile")
    return len(known) == len(survivors) and share >= WANTED


def main():
    parser = argparse.ArgumentParser(prog="./run mutants", description=__doc__)
    parser.add_argument("path", nargs="*", default=["src"], help="files or folders of src")
    parser.add_argument("--all", action="store_true", help="every mutant instead of a sample")
    parser.add_argument("--share", type=float, default=0.24, help="of the mutants, that the sample takes (%(default)s)")
    parser.add_argument("--matrix", action="store_true", help="every case that kills a mutant, not the first alone")
    parser.add_argument("--list", action="store_true", help="print the mutants and end")
    parser.add_argument("--compare", type=pathlib.Path, metavar="OLD.json", help="what an earlier report had killed")
    parser.add_argument("--report", type=pathlib.Path, default=WORK / "report.json")
    parser.add_argument("-j", type=int, default=2, dest="jobs", help="mutants at a time (%(default)s)")
    options = parser.parse_args()

    wanted = [pathlib.Path(path).resolve() for path in options.path]
    mutants = []
    for file in sorted(path for path in (ROOT / "src").rglob("*") if path.suffix in (".cpp", ".h")):
        if any(file.is_relative_to(path) for path in wanted):
            mutants += rules.mutants_of(str(file.relative_to(ROOT)), file.read_text())
    if not options.all:
        mutants = rules.sample(mutants, options.share)
    if options.list:
        for mutant in mutants:
            print(place(mutant._asdict()))
        return 0

    build, suite = Build(), Suite()
    created = [Worker(number, build, suite) for number in range(options.jobs)]
    workers = queue.SimpleQueue()
    for worker in created:
        workers.put(worker)
    try:
        created[0].make(None)
        if failing := created[0].killers(None, False):
            print(f"without a mutant fails: {failing[0]}", file=sys.stderr)
            return 2
        entries = []
        with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
            for entry in pool.map(lambda mutant: try_mutant(workers, mutant, options.matrix), mutants):
                entries.append(entry)
                print(f'{len(entries)}/{len(mutants)} {entry["file"]}:{entry["line"]} {entry["rule"]}: {entry["state"]}'
                      + "".join(f" {case}" for case in entry.get("killers", [])[:1]), flush=True)
    finally:
        for worker in created:
            worker.close()
    options.report.parent.mkdir(parents=True, exist_ok=True)
    options.report.write_text(json.dumps({"mutants": entries}, indent=1) + "\n")
    accepted = {rules.identity(entry): entry for entry in json.loads(SURVIVORS.read_text())}
    good = summary(entries, accepted, options.matrix)
    if options.compare and compare(entries, json.loads(options.compare.read_text())["mutants"]):
        good = False
    return 0 if good else 1


if __name__ == "__main__":
    sys.exit(main())
