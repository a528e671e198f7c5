#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""vvlanctl's bash completion: sources the file in a bare bash and calls its
function with the words bash would give it, as bash does on TAB.

    test_completion.py BASH COMPLETION_FILE

Exits 0 when every case completes as expected, 1 with the failures.
"""
import shlex
import subprocess
import sys

# Words typed so far (the last one is being completed) -> the candidates.
CASES = [
    (["vvlanctl", ""], {"show", "check", "watch", "history", "metrics", "set", "unset", "add",
                        "del", "learn", "age", "specify", "unspecify", "debug", "sync",
                        "record", "replay"}),
    (["vvlanctl", "s"], {"show", "set", "specify", "sync"}),
    (["vvlanctl", "replay", "--f"], {"--fast"}),
    (["vvlanctl", "--v"], {"--version"}),
    (["vvlanctl", "-s", "/run/redis.sock", "wa"], {"watch"}),
    (["vvlanctl", "set", ""], {"vid", "aging", "cos", "security", "auto"}),
    (["vvlanctl", "set", "security", ""], {"on", "off"}),
    (["vvlanctl", "set", "vid", "100", "--r"], {"--replace"}),
    (["vvlanctl", "unset", ""], {"vid", "auto"}),
    (["vvlanctl", "del", "o"], {"oui"}),
    (["vvlanctl", "watch", "--e"], {"--enable-events"}),
    (["vvlanctl", "watch", "family", "mac_"], {"mac_learning", "mac_vlan"}),
    (["vvlanctl", "watch", "port", ""], set()),
    (["vvlanctl", "hi"], {"history"}),
    (["vvlanctl", "history", "--s"], {"--since"}),
    (["vvlanctl", "history", "family", "port_"], {"port_oper"}),
    (["vvlanctl", "history", "address", ""], set()),
    (["vvlanctl", "-h", ""], set()),
    (["vvlanctl", "show", "--j"], {"--json"}),
]


def complete(bash, path, words):
    script = (
        f"source {shlex.quote(path)} || exit 2\n"
        f"COMP_WORDS=({' '.join(shlex.quote(w) for w in words)})\n"
        f"COMP_CWORD={len(words) - 1}\n"
        f"COMP_LINE={shlex.quote(' '.join(words))}\n"
        "COMP_POINT=${#COMP_LINE}\n"
        "_vvlanctl vvlanctl \"${COMP_WORDS[COMP_CWORD]}\" \"${COMP_WORDS[COMP_CWORD-1]}\" || exit 3\n"
        "printf '%s\\n' \"${COMPREPLY[@]}\"\n"
        "complete -p vvlanctl >&2\n")
    r = subprocess.run([bash, "--norc", "--noprofile", "-c", script], capture_output=True,
                       text=True, timeout=30, check=False)
    return r.returncode, {w for w in r.stdout.split("\n") if w}, r.stderr


def main(argv):
    if len(argv) != 2:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    bash, path = argv
    failures = []
    for words, expected in CASES:
        status, got, err = complete(bash, path, words)
        if status != 0 or got != expected or "-F _vvlanctl" not in err:
            failures.append(f"{words!r}: status {status}, got {sorted(got)}, expected "
                            f"{sorted(expected)}; {err.strip()}")
    for f in failures:
        print(f)
    print(f"{len(CASES) - len(failures)} of {len(CASES)} completions as expected")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
