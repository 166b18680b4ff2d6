#!/usr/bin/env python3
"""Holds README.md and the pages of docs/ against what is there: check_docs.py SOURCE-FOLDER links|code|commands BUILD-FOLDER

links     every relative link and anchor leads somewhere, every block of code says its language, every script that is
          named exists, and the failure catalogue has each code of a URLError
code      every block of C++ compiles: a whole program as it is, anything else as the body of a function
commands  every block of shell commands runs, page by page, in a folder of its own; a line's comment may say which exit
          status to expect, as in "# exit status 7"
"""
import os
import pathlib
import re
import subprocess
import sys
import tempfile

SOURCE = pathlib.Path(sys.argv[1]).resolve()
PAGES = sorted([*SOURCE.glob("*.md"), *SOURCE.glob("docs/*.md"), *SOURCE.glob("samples/*.md")])
LANGUAGES = {"sh", "text", "cpp", "c", "cmake", "json", "python", "swift", "kotlin"}
# What runs for long, installs something or is run by the checks themselves; that it exists is checked all the same.
NOT_RUN = re.compile(r"(sudo |apt|git |cmake |ctest |cpack |ninja |\./run-|benchmarks/run|scripts/|fuzz/run|build/|(TAVLO|FUZZ)_\w+=)")
PREAMBLE = """#include <Foundation/JSONDecoder.hpp>
#include <Foundation/JSONEncoder.hpp>
#include <Foundation/Print.hpp>
#include <Foundation/URLSession.hpp>
#include <TavloCA/TavloCA.hpp>
#include <TavloCommon/FileImageStore.hpp>
#include <TavloReader/DocumentSource.hpp>
#include <TavloReader/Log.hpp>
#include <TavloStore/FileKeyStore.hpp>

#include <chrono>
#include <future>
#include <iostream>
#include <memory>

using namespace tavlo;

void snippet(const reader::NFCPassportModel& model, const DataGroups& groups, const uikit::UIImage& selfie,
             const std::shared_ptr<Passport>& passport, const foundation::Data& body, const std::string& url,
             const Completion& completion) {
  {
"""


def blocks(page):
    """The (line number, language, text) of each fenced block."""
    for match in re.finditer(r"^```(.*)\n((?:.*\n)*?)```$", page.read_text(), re.MULTILINE):
        yield page.read_text()[: match.start()].count("\n") + 1, match.group(1).strip(), match.group(2)


def anchors(page):
    titles = re.findall(r"^#+ (.*)$", page.read_text(), re.MULTILINE)
    return {re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-") for title in titles}


def check_links():
    for page in PAGES:
        prose = re.sub(r"^```.*?^```$", "", page.read_text(), flags=re.MULTILINE | re.DOTALL)
        for link in re.findall(r"\]\(([^)\s]+)\)", prose):
            path, _, anchor = link.partition("#")
            target = (page.parent / path).resolve() if path else page
            if re.match(r"\w+:", link):
                continue
            if not target.exists():
                yield f"{page.name}: {link} leads nowhere"
            elif anchor and anchor not in anchors(target):
                yield f"{page.name}: there is no heading for {link}"
        for line, language, text in blocks(page):
            if language not in LANGUAGES:
                yield f"{page.name}:{line}: a block without a known language: '{language}'"
        for script in re.findall(r"(?:^|[`\s])(?:\./)?((?:scripts/|benchmarks/|tools/|fuzz/run|run-(?!scripts)|\.ci/)[\w./-]*\w)", page.read_text()):
            if not (SOURCE / script).exists():
                yield f"{page.name}: there is no {script}"
    catalogue = (SOURCE / "docs/failures.md").read_text()
    header = (SOURCE / "platform/Foundation/URLError.hpp").read_text()
    for name, code in re.findall(r"(\w+) = (-\d+),", header):
        if f"| {code} `{name}` |" not in catalogue:
            yield f"failures.md does not tell of {code} {name}"


def check_code():
    compiler = os.environ.get("CXX", "c++")
    for page in PAGES:
        for line, language, text in blocks(page):
            if language != "cpp":
                continue
            source = text if "int main" in text else PREAMBLE + text + "\n  }\n}\n"
            result = subprocess.run(
                [compiler, "-std=c++20", "-fsyntax-only", "-x", "c++", f"-I{SOURCE}", f"-I{SOURCE}/platform",
                 f"-I{SOURCE}/siblings", "-"], input=source, text=True, capture_output=True)
            if result.returncode:
                yield f"{page.name}:{line}: {result.stderr}"


def script_of(page, scratch):
    """The commands of a page as one script, each with the exit status that the page promises."""
    yield from ["start() { stop; \"$@\" >service.log 2>&1 & service=$!; for _ in $(seq 200); do",
                "  grep -q 'listens at' service.log && return; kill -0 $service || break; sleep 0.1; done",
                "  cat service.log; return 1; }",
                "service=; stop() { [ -z \"$service\" ] || { kill $service; wait $service || true; service=; }; }",
                "trap stop EXIT",
                "expect() { local wanted=$1 status=0; shift; \"$@\" || status=$?; [ $status = $wanted ] || {",
                "  echo \"exit status $status, not $wanted\"; return 1; } }"]
    for line, language, text in blocks(page):
        if language != "sh":
            continue
        for command in text.replace("\\\n", " ").replace("/tmp/sandbox", f"{scratch}/sandbox").splitlines():
            if not command.strip() or command.startswith("#") or NOT_RUN.match(command.strip()):
                continue
            yield f"echo {page.name}:{line}: " + "'" + command.replace("'", "'\\''") + "' >&2"
            status = re.search(r"#.*exit status (\d+)", command)
            if command.startswith("tavlo-sandbox --csca"):
                command = "start " + command
            yield f"expect {status.group(1)} {command}" if status else command


def check_commands():
    for page in PAGES:
        if page.name == "install.md":  # tests/consumers follow it
            continue
        with tempfile.TemporaryDirectory() as folder:
            scratch = pathlib.Path(folder) / "work"
            scratch.mkdir()
            for entry in SOURCE.iterdir():
                if entry.name not in {"build", ".git"}:
                    (scratch / entry.name).symlink_to(entry)
            (scratch / "build").mkdir()
            (scratch / "build/dev").symlink_to(pathlib.Path(sys.argv[3]).resolve())
            programs = f"{scratch}/build/dev/apps/tavlo:{scratch}/build/dev/apps/sandbox"
            script = "set -eu\n" + "\n".join(script_of(page, folder)) + "\n"
            environment = {"HOME": folder, "PATH": f"{programs}:{os.environ['PATH']}", "LANG": "C.UTF-8",}
            result = subprocess.run(["bash", "-c", script], cwd=scratch, env=environment, text=True,
                                    stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=600)
            if result.returncode:
                yield f"{page.name}: {result.stdout[-3000:]}"


CHECKS = {"links": check_links, "code": check_code, "commands": check_commands}
faults = list(CHECKS[sys.argv[2]]())
print("\n".join(faults) if faults else f"{len(PAGES)} pages are as they should be")
sys.exit(1 if faults else 0)
