#!/usr/bin/env python3
# SPDX-License-Identifier: BSD-3-Clause
"""Validates vvlanctl's JSON output against one of its schema files.

    check_json_schema.py SCHEMA [FILE]      FILE (default: standard input)
    check_json_schema.py --lines SCHEMA [FILE]
                                            one document per line (watch)

Exits 0 when every document is valid, 1 with one line per error otherwise,
2 on bad usage or an unreadable or invalid schema. Uses Debian's
python3-jsonschema; the schema's own $schema names the draft.
"""
import json
import sys

import jsonschema


def main(argv):
    lines = False
    if argv and argv[0] == "--lines":
        lines = True
        argv = argv[1:]
    if not 1 <= len(argv) <= 2:
        print(__doc__.strip(), file=sys.stderr)
        return 2
    try:
        with open(argv[0], encoding="utf-8") as f:
            schema = json.load(f)
        validator_class = jsonschema.validators.validator_for(schema)
        validator_class.check_schema(schema)
    except (OSError, ValueError, jsonschema.exceptions.SchemaError) as e:
        print(f"check_json_schema: {argv[0]}: {e}", file=sys.stderr)
        return 2
    validator = validator_class(schema, format_checker=validator_class.FORMAT_CHECKER)
    text = open(argv[1], encoding="utf-8").read() if len(argv) == 2 else sys.stdin.read()
    documents = text.splitlines() if lines else [text]
    if lines and not documents:
        print("check_json_schema: no line to validate", file=sys.stderr)
        return 1
    bad = 0
    for number, document in enumerate(documents, 1):
        where = f"line {number}: " if lines else ""
        try:
            value = json.loads(document)
        except ValueError as e:
            print(f"{where}not JSON: {e}")
            bad += 1
            continue
        for error in validator.iter_errors(value):
            path = "/".join(str(p) for p in error.absolute_path)
            print(f"{where}/{path}: {error.message}")
            bad += 1
    return 1 if bad else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
