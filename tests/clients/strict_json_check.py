#!/usr/bin/env python3
"""Reads traces as the strictest JSON reader would.

   python3 strict_json_check.py TRACE.json[.gz]...

The file must be UTF-8 as it stands, every string (keys included, after
its escapes are undone) must encode to UTF-8, every number must be an
integer (no fraction, exponent, NaN or Infinity), no object may repeat a
key, and the document must be an object with a "traceEvents" array.
"""
import gzip
import json
import sys


class Refused(Exception):
    pass


def refuse_number(text):
    raise Refused(f"a number that is not an integer: {text}")


def unique_keys(pairs):
    keys = [key for key, _ in pairs]
    if len(keys) != len(set(keys)):
        raise Refused(f"an object repeats a key: {keys}")
    return dict(pairs)


def check_strings(value, counts):
    if isinstance(value, str):
        value.encode("utf-8")  # a lone surrogate from a \\u escape raises here
        counts["strings"] += 1
    elif isinstance(value, dict):
        for key, item in value.items():
            check_strings(key, counts)
            check_strings(item, counts)
    elif isinstance(value, list):
        for item in value:
            check_strings(item, counts)
    elif isinstance(value, bool) or value is None:
        pass
    elif isinstance(value, int):
        counts["integers"] += 1
    else:
        raise Refused(f"an unexpected value: {value!r}")


def check(path):
    with (gzip.open if path.endswith(".gz") else open)(path, "rb") as file:
        text = file.read().decode("utf-8")
    document = json.loads(text, parse_float=refuse_number, parse_constant=refuse_number,
                          object_pairs_hook=unique_keys)
    if not isinstance(document, dict) or not isinstance(document.get("traceEvents"), list):
        raise Refused('not an object with a "traceEvents" array')
    counts = {"strings": 0, "integers": 0}
    check_strings(document, counts)
    events = document["traceEvents"]
    slices = sum(1 for event in events if event.get("ph") == "X")
    return (f"{len(events)} events ({slices} slices), {counts['strings']} strings all UTF-8, "
            f"{counts['integers']} numbers all integers")


def main():
    failed = False
    for path in sys.argv[1:]:
        try:
            print(f"strict JSON (Python {sys.version.split()[0]}): {path}: {check(path)}")
        except (Refused, ValueError, UnicodeError) as error:
            print(f"strict JSON (Python {sys.version.split()[0]}): {path}: FAILED: {error}")
            failed = True
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
