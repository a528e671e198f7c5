#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Checks README.md and every docs/*.md of the source tree.

1. Every relative link resolves: [text](path), [text](path#anchor) and
   (#anchor). The file must exist, relative to the document; an anchor must
   be the slug of a heading of the target markdown file, as GitHub makes it.
   http(s) and mailto links are not followed.
2. No path of a build machine appears anywhere in the text (/work/, /home/,
   /root/, /tmp/, /Users/): the documents are read on other machines.
3. Every command in a fenced block (info string sh, bash, shell or console,
   or none when the block looks like commands) starts with a program that
   exists: a path in the tree, a build output under out/, a system program
   of SYSTEM_PROGRAMS or one of the project's own programs. Every
   "cmake --preset", "cmake --build --preset", "ctest --preset" and
   "cmake --workflow --preset" names a preset of CMakePresets.json (in
   inline code too).

Prints one line per problem, FILE:LINE: message, then a summary line; exits
1 when it found a problem. --self-test proves, on a copy of the documents,
that each kind of problem is found and that the clean copy passes.

    tests/docs/check_docs.py [--root DIR]
    tests/docs/check_docs.py --self-test
"""

import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

# Programs a command block may start with besides paths of the tree: system
# programs and shell built-ins the documents use.
SYSTEM_PROGRAMS = sorted("""
    apt-get bash busybox callgrind_annotate cat cd clang-format cmake cpack
    ctest dpkg dpkg-buildpackage env export git gnuplot grep groff head install
    ip journalctl kill lintian ls make man mips-linux-gnu-nm mips-linux-gnu-size
    mips-linux-gnu-strip nproc perf pkill python3 qemu-mips readelf redis-cli
    redis-server service sh start-stop-daemon strings sudo systemctl
    systemd-analyze tail tar valgrind watch
""".split())

# The project's own programs, as installed or on the switch's PATH.
PROJECT_PROGRAMS = ["dov_vvlan", "vvlanctl"]

# Absolute paths of installed programs a command may name.
INSTALLED_PATHS = ["/etc/init.d/dov_vvlan", "/usr/sbin/dov_vvlan", "/usr/bin/vvlanctl"]

# Words of the shell's own syntax that may start a command line.
SHELL_WORDS = ["for", "do", "done", "if", "then", "else", "fi", "while", "{", "}", "(", ")"]

# Prefixes of paths made by a build, which need not exist in the tree.
BUILD_OUTPUT_PREFIXES = ["out/"]

# Paths of a build machine, not to be found in the text. The look-behind
# keeps /var/tmp/ and the like, which are paths of the switch, out.
MACHINE_PATH = re.compile(r"(?<![\w.~/-])/(?:work|home|root|tmp|Users)/\S*")
# Occurrences allowed all the same (none so far).
MACHINE_PATH_ALLOWED = []

COMMAND_INFO = {"sh", "bash", "shell", "console"}

FENCE = re.compile(r"^ {0,3}(`{3,}|~{3,})\s*([^`\s]*)")
ATX_HEADING = re.compile(r"^ {0,3}(#{1,6})[ \t]+(.*?)(?:[ \t]+#+)?[ \t]*$")
SETEXT_UNDERLINE = re.compile(r"^ {0,3}(=+|-+)[ \t]*$")
INLINE_CODE = re.compile(r"(`+)(.+?)\1")
LINK = re.compile(r"!?\[((?:[^\[\]]|\[[^\]]*\])*)\]\(\s*<?([^)\s>]*)>?(?:\s+\"[^\"]*\")?\s*\)")
ASSIGNMENT = re.compile(r"^[A-Za-z_][A-Za-z0-9_]*=")
PRESET_USE = re.compile(
    r"\b(cmake|ctest)\s+((?:--build\s+|--workflow\s+)?)--preset(?:\s+|=)([A-Za-z0-9_.-]+)")


def slug(text):
    """A heading's anchor as GitHub makes it, before duplicates are numbered."""
    text = re.sub(r"!?\[([^\]]*)\]\([^)]*\)", r"\1", text)  # links: their text
    text = re.sub(r"<[^>]+>", "", text)  # inline HTML
    text = text.strip().lower()
    text = "".join(ch for ch in text if ch.isalnum() or ch in " -_")
    return text.replace(" ", "-")


class Document:
    """A markdown file split into lines, its fenced blocks marked."""

    def __init__(self, path):
        self.path = path
        with open(path, encoding="utf-8") as f:
            self.lines = f.read().split("\n")
        # For each line: None outside a fence, else (info string, is fence line).
        self.fence = []
        inside = None
        for line in self.lines:
            m = FENCE.match(line)
            if inside is None and m:
                inside = (m.group(1), m.group(2).lower())
                self.fence.append((inside[1], True))
            elif inside is not None and m and m.group(1)[0] == inside[0][0] \
                    and len(m.group(1)) >= len(inside[0]) and not m.group(2):
                self.fence.append((inside[1], True))
                inside = None
            else:
                self.fence.append(None if inside is None else (inside[1], False))

    def anchors(self):
        seen = {}
        result = set()
        for i, line in enumerate(self.lines):
            if self.fence[i] is not None:
                continue
            text = None
            m = ATX_HEADING.match(line)
            if m:
                text = m.group(2)
            elif (i + 1 < len(self.lines) and self.fence[i + 1] is None and line.strip()
                  and not line.lstrip().startswith(("|", ">", "-", "*", "#"))
                  and SETEXT_UNDERLINE.match(self.lines[i + 1])):
                text = line
            if text is None:
                continue
            base = slug(text)
            n = seen.get(base, 0)
            seen[base] = n + 1
            result.add(base if n == 0 else f"{base}-{n}")
        return result

    def blocks(self):
        """The fenced blocks: (info string, [(line number, text)])."""
        block = None
        for i, line in enumerate(self.lines):
            state = self.fence[i]
            if state is None:
                continue
            info, is_fence = state
            if is_fence and block is None:
                block = (info, [])
            elif is_fence:
                yield block
                block = None
            else:
                block[1].append((i + 1, line))
        if block is not None:
            yield block


class Checker:
    def __init__(self, root):
        self.root = os.path.abspath(root)
        self.problems = []
        self.consulted = set()  # paths of the tree looked at, for --self-test
        self.documents = {}
        self.presets = self.load_presets()

    def exists(self, path):
        self.consulted.add(os.path.relpath(os.path.abspath(path), self.root))
        return os.path.exists(path)

    def problem(self, path, line, message):
        self.problems.append(f"{os.path.relpath(path, self.root)}:{line}: {message}")

    def load_presets(self):
        path = os.path.join(self.root, "CMakePresets.json")
        presets = {"configure": set(), "build": set(), "test": set(), "workflow": set()}
        if not self.exists(path):
            return presets
        with open(path, encoding="utf-8") as f:
            data = json.load(f)
        for kind in presets:
            for preset in data.get(kind + "Presets", []):
                if not preset.get("hidden", False):
                    presets[kind].add(preset["name"])
        return presets

    def document(self, path):
        path = os.path.abspath(path)
        if path not in self.documents:
            self.documents[path] = Document(path)
        return self.documents[path]

    def files(self):
        found = [os.path.join(self.root, "README.md")]
        docs = os.path.join(self.root, "docs")
        if os.path.isdir(docs):
            found += sorted(os.path.join(docs, name) for name in os.listdir(docs)
                            if name.endswith(".md"))
        return [f for f in found if os.path.isfile(f)]

    def run(self):
        files = self.files()
        for path in files:
            self.check(self.document(path))
        return files

    def check(self, doc):
        for i, line in enumerate(doc.lines):
            number = i + 1
            for m in MACHINE_PATH.finditer(line):
                path = m.group(0).rstrip(".,;:!?)]}>'\"`")
                if path not in MACHINE_PATH_ALLOWED:
                    self.problem(doc.path, number,
                                 f"path of a build machine: {path} (write it relative "
                                 "to the tree)")
            if doc.fence[i] is None:
                self.check_links(doc, number, line)
                for code in INLINE_CODE.finditer(line):
                    self.check_presets(doc, number, code.group(2))
        for info, lines in doc.blocks():
            self.check_block(doc, info, lines)

    def check_links(self, doc, number, line):
        # Links inside inline code are text, not links.
        text = INLINE_CODE.sub(lambda m: " " * len(m.group(0)), line)
        for m in LINK.finditer(text):
            target = m.group(2)
            if not target or re.match(r"^[a-zA-Z][a-zA-Z0-9+.-]*:", target):
                continue  # http:, https:, mailto: and other schemes
            path, _, anchor = target.partition("#")
            if path:
                if path.startswith("/"):
                    self.problem(doc.path, number, f"link to an absolute path: {target}")
                    continue
                resolved = os.path.normpath(os.path.join(os.path.dirname(doc.path), path))
                if not self.exists(resolved):
                    self.problem(doc.path, number, f"broken link: {path} does not exist")
                    continue
            else:
                resolved = doc.path
            if anchor:
                if not resolved.endswith(".md") or os.path.isdir(resolved):
                    self.problem(doc.path, number,
                                 f"anchor #{anchor} on a file that is not markdown: {path}")
                elif anchor not in self.document(resolved).anchors():
                    where = path or os.path.basename(doc.path)
                    self.problem(doc.path, number,
                                 f"broken anchor: no heading #{anchor} in {where}")

    def check_presets(self, doc, number, text):
        for m in PRESET_USE.finditer(text):
            tool, sub, name = m.group(1), m.group(2).strip(), m.group(3)
            if tool == "ctest":
                kind = "test"
            elif sub == "--build":
                kind = "build"
            elif sub == "--workflow":
                kind = "workflow"
            else:
                kind = "configure"
            if name not in self.presets[kind]:
                self.problem(doc.path, number,
                             f"no {kind} preset \"{name}\" in CMakePresets.json "
                             f"({m.group(0)})")

    def check_block(self, doc, info, lines):
        if info not in COMMAND_INFO:
            if info or not looks_like_commands(lines):
                return
            info = "console" if any(t.lstrip().startswith("$ ") for _, t in lines) else "sh"
        continued = False
        for number, text in lines:
            was_continued = continued
            continued = text.rstrip().endswith("\\")
            if was_continued:
                continue
            stripped = text.strip()
            if info == "console":
                if stripped.startswith("$ ") or stripped.startswith("# "):
                    command = stripped[2:]
                else:
                    continued = False  # output
                    continue
            else:
                if not stripped or stripped.startswith("#"):
                    continued = False
                    continue
                command = stripped[2:] if stripped.startswith("$ ") else stripped
            self.check_presets(doc, number, command)
            for segment in segments(command):
                word = first_word(segment)
                if word is not None and not self.known_program(word):
                    self.problem(doc.path, number,
                                 f"unknown program \"{word}\": not in the tree, not a build "
                                 "output under out/, not in the checker's list of system "
                                 "programs")

    def known_program(self, word):
        if word in SYSTEM_PROGRAMS or word in PROJECT_PROGRAMS or word in SHELL_WORDS:
            return True
        if word in INSTALLED_PATHS:
            return True
        if any(word.startswith(prefix) for prefix in BUILD_OUTPUT_PREFIXES):
            return True
        if "/" in word and not word.startswith("/"):
            return self.exists(os.path.join(self.root, word))
        return False


def looks_like_commands(lines):
    """An unlabelled block is taken for commands when its first line is one."""
    for _, text in lines:
        stripped = text.strip()
        if not stripped or stripped.startswith("#"):
            continue
        if stripped.startswith("$ "):
            return True
        word = first_word(stripped)
        if word is None:
            return False
        rest = stripped.split()
        return ("/" in word or word in SYSTEM_PROGRAMS or word in PROJECT_PROGRAMS
                or (len(rest) > 1 and rest[1].startswith("-")))
    return False


def segments(command):
    """The simple commands of a line: split at ; && || | outside quotes,
    a trailing comment dropped."""
    parts, current, quote = [], "", None
    i = 0
    while i < len(command):
        ch = command[i]
        if quote:
            current += ch
            if ch == quote:
                quote = None
        elif ch in "'\"":
            quote = ch
            current += ch
        elif ch == "#" and (not current or current[-1].isspace()):
            break
        elif command.startswith(("&&", "||"), i):
            parts.append(current)
            current = ""
            i += 1
        elif ch in ";|":
            parts.append(current)
            current = ""
        else:
            current += ch
        i += 1
    parts.append(current)
    return [p.strip() for p in parts if p.strip()]


def first_word(segment):
    """The program a simple command runs: after VAR=value and sudo."""
    words = segment.split()
    while words and (ASSIGNMENT.match(words[0]) or words[0] in ("sudo", "exec", "time")):
        if words[0] == "sudo" and len(words) > 1 and words[1].startswith("-"):
            words = words[2:] if words[1] in ("-u", "-g") else words[1:]
        words = words[1:]
    if not words:
        return None
    return words[0].strip("'\"")


def report(checker, files):
    for line in checker.problems:
        print(line)
    count = len(checker.problems)
    print(f"check_docs: {len(files)} documents, "
          + (f"{count} problem{'s' if count != 1 else ''}" if count else "no problem"))
    return 1 if count else 0


def self_test(root):
    """Copies the documents and what the checker consults into a scratch
    tree, then breaks them one way at a time."""
    slugs = {
        "The target build (MIPS32r2, big-endian)": "the-target-build-mips32r2-big-endian",
        "Against the vendor's platform libraries": "against-the-vendors-platform-libraries",
        "Run every test: `tools/test-all`": "run-every-test-toolstest-all",
        "See [the guide](x.md) and dov_vvlan": "see-the-guide-and-dov_vvlan",
    }
    for heading, expected in slugs.items():
        if slug(heading) != expected:
            print(f"self-test FAILED: slug({heading!r}) is {slug(heading)!r}, not {expected!r}")
            return 1
    clean = Checker(root)
    files = clean.run()
    if clean.problems:
        print("self-test: the documents have problems of their own; fix those first:")
        report(clean, files)
        return 1
    failures = []
    with tempfile.TemporaryDirectory(prefix="check_docs.") as scratch:
        base = os.path.join(scratch, "clean")
        wanted = set(clean.consulted) | {os.path.relpath(f, root) for f in files}
        for rel in sorted(wanted):
            source, dest = os.path.join(root, rel), os.path.join(base, rel)
            if os.path.isdir(source):
                os.makedirs(dest, exist_ok=True)
            elif os.path.isfile(source):
                os.makedirs(os.path.dirname(dest), exist_ok=True)
                shutil.copy2(source, dest)

        def run(tree):
            done = subprocess.run([sys.executable, os.path.abspath(__file__), "--root", tree],
                                  capture_output=True, text=True)
            return done.returncode, done.stdout

        code, out = run(base)
        print(f"clean copy: exit {code}, {out.strip().splitlines()[-1]}")
        if code != 0:
            failures.append("the clean copy does not pass:\n" + out)

        readme_lines = len(open(os.path.join(base, "README.md"), encoding="utf-8")
                           .read().split("\n"))
        injections = [
            ("broken relative link", "[the guide](docs/no-such-guide.md)",
             "broken link: docs/no-such-guide.md does not exist"),
            ("broken anchor", "[the key reference](docs/keys.md#no-such-heading)",
             "broken anchor: no heading #no-such-heading in docs/keys.md"),
            ("broken anchor in the same file", "[here](#no-such-section)",
             "broken anchor: no heading #no-such-section in README.md"),
            ("machine path", "The socket is /work/someone/out/sandbox/redis.sock.",
             "path of a build machine: /work/someone/out/sandbox/redis.sock"),
            ("unknown program", "```sh\ntools/demo\nfrobnicate --all\n```",
             "unknown program \"frobnicate\""),
            ("missing script", "```console\n$ tools/no-such-script --quick\n```",
             "unknown program \"tools/no-such-script\""),
            ("unknown preset", "```sh\ncmake --workflow --preset no-such-preset\n```",
             "no workflow preset \"no-such-preset\""),
        ]
        # A heading's second occurrence is reached with -1, as on GitHub.
        tree = os.path.join(scratch, "duplicate-heading")
        shutil.copytree(base, tree, symlinks=True)
        with open(os.path.join(tree, "README.md"), "a", encoding="utf-8") as f:
            f.write("\n## Licence\n\nAgain: [the second one](#licence-1).\n")
        code, out = run(tree)
        print(f"duplicate heading reached with -1: exit {code}")
        if code != 0:
            failures.append("a link to a duplicate heading's -1 anchor was refused:\n" + out)

        for name, text, expected in injections:
            tree = os.path.join(scratch, re.sub(r"\W+", "-", name))
            shutil.copytree(base, tree, symlinks=True)
            with open(os.path.join(tree, "README.md"), "a", encoding="utf-8") as f:
                f.write("\n" + text + "\n")
            code, out = run(tree)
            hit = [line for line in out.splitlines()
                   if line.startswith("README.md:") and expected in line]
            line_ok = any(int(line.split(":")[1]) > readme_lines for line in hit)
            status = "found" if code != 0 and hit and line_ok else "MISSED"
            print(f"{name}: {status}" + (f": {hit[0]}" if hit else ""))
            if status != "found":
                failures.append(f"{name}: exit {code}, expected \"{expected}\" in:\n{out}")
    for failure in failures:
        print("self-test FAILED: " + failure)
    print("self-test: " + ("FAILED" if failures else "every injected problem was found, "
                           "the clean copy passes"))
    return 1 if failures else 0


def main():
    here = os.path.dirname(os.path.abspath(__file__))
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--root", default=os.path.normpath(os.path.join(here, "..", "..")),
                        help="the source tree (default: the one this script is in)")
    parser.add_argument("--self-test", action="store_true",
                        help="prove on a copy that every kind of problem is found")
    args = parser.parse_args()
    if args.self_test:
        return self_test(os.path.abspath(args.root))
    checker = Checker(args.root)
    files = checker.run()
    return report(checker, files)


if __name__ == "__main__":
    sys.exit(main())
