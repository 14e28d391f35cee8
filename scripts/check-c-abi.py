#!/usr/bin/env python3
"""Checks the C API's binary interface against its record: a function whose
signature changed, a struct laid out otherwise, or an enumerator whose value
changed, all without a new SONAME, fail the check. So does anything of the
header that the record lacks, so that it is checked from then on.

Usage:
  check-c-abi.py HEADER RECORD SONAME [--library LIB]   check
  check-c-abi.py HEADER RECORD SONAME --update            record the API anew

What may change under one SONAME: functions, structs and enums may be
added (and recorded); an enum may gain enumerators; a struct whose first
member is its size (the options) may gain members at its end. A shared
LIB given must export exactly the header's functions.
"""

import argparse
import re
import subprocess
import sys


def strip_comments(text):
    text = re.sub(r"/\*.*?\*/", " ", text, flags=re.S)
    return re.sub(r"//[^\n]*", " ", text)


def normal(text):
    """One space between words, none around punctuation."""
    text = re.sub(r"\s+", " ", text).strip()
    return re.sub(r"\s*([*(),;{}=\[\]])\s*", r"\1", text)


def read_api(header_text):
    """The header's functions ({name: prototype}), structs ({name: [member]})
    and enums ({name: {enumerator: value}})."""
    text = strip_comments(header_text)
    defines = {m.group(1): m.group(2).strip() for m in re.finditer(r"^\s*#\s*define\s+(HB_\w+)\s+(.+)$", text, re.M)}
    text = re.sub(r"^\s*#.*$", " ", text, flags=re.M)
    # Inline functions (the options' init) are compiled into the caller.
    text = re.sub(r"static inline[^{]*\{[^}]*\}", " ", text)
    functions = {}
    for m in re.finditer(r"HEXBLOCKS_API([^;]*?\b(hb_\w+)\s*\([^;]*\))\s*;", text):
        functions[m.group(2)] = normal(m.group(1))
    structs = {}
    for m in re.finditer(r"typedef struct (hb_\w+)\s*\{(.*?)\}\s*\1\s*;", text, flags=re.S):
        members = [normal(member) for member in m.group(2).split(";") if member.strip()]
        structs[m.group(1)] = members
    enums = {}
    for m in re.finditer(r"typedef enum (hb_\w+)\s*\{(.*?)\}\s*\1\s*;", text, flags=re.S):
        values = {}
        following = 0
        for entry in m.group(2).split(","):
            entry = entry.strip()
            if not entry:
                continue
            name, _, value = entry.partition("=")
            following = int(value.strip(), 0) if value.strip() else following
            values[name.strip()] = following
            following += 1
        enums[m.group(1)] = values
    return functions, structs, enums, defines


def write_record(path, soname, api):
    functions, structs, enums, defines = api
    lines = [f"soname {soname}"]
    lines += [f"define {name} {defines[name]}" for name in sorted(defines)]
    lines += [f"function {name} {functions[name]}" for name in sorted(functions)]
    lines += [f"struct {name} {' ; '.join(structs[name])}" for name in sorted(structs)]
    lines += [f"enum {name} " + " ".join(f"{k}={v}" for k, v in enums[name].items()) for name in sorted(enums)]
    with open(path, "w") as f:
        f.write("# The C API as released under the SONAME below: scripts/check-c-abi.py\n")
        f.write("# compares hexblocks.h with it, and --update writes it anew.\n")
        f.write("\n".join(lines) + "\n")


def read_record(path):
    soname = None
    functions, structs, enums, defines = {}, {}, {}, {}
    with open(path) as f:
        for line in f:
            line = line.rstrip("\n")
            if not line or line.startswith("#"):
                continue
            kind, _, rest = line.partition(" ")
            name, _, body = rest.partition(" ")
            if kind == "soname":
                soname = name
            elif kind == "define":
                defines[name] = body
            elif kind == "function":
                functions[name] = body
            elif kind == "struct":
                structs[name] = body.split(" ; ") if body else []
            elif kind == "enum":
                enums[name] = {k: int(v) for k, v in (pair.split("=") for pair in body.split())}
    return soname, (functions, structs, enums, defines)


def problems(recorded, current):
    """What the current API breaks of the recorded one, and what it adds
    that the record lacks."""
    found = []
    (rf, rs, re_, rd), (cf, cs, ce, cd) = recorded, current
    for name, value in rd.items():
        if cd.get(name) != value:
            found.append(f"{name} was {value}, is now {cd.get(name)}")
    for name, prototype in rf.items():
        if name not in cf:
            found.append(f"function {name} was removed")
        elif cf[name] != prototype:
            found.append(f"function {name} changed: {prototype} -> {cf[name]}")
    for name, members in rs.items():
        if name not in cs:
            found.append(f"struct {name} was removed")
            continue
        now = cs[name]
        grows = bool(members) and members[0] == "size_t size"
        if now[:len(members)] != members or (not grows and len(now) != len(members)):
            found.append(f"struct {name} changed: {' ; '.join(members)} -> {' ; '.join(now)}")
    for name, values in re_.items():
        if name not in ce:
            found.append(f"enum {name} was removed")
            continue
        for enumerator, value in values.items():
            if ce[name].get(enumerator) != value:
                found.append(f"enum {name}: {enumerator} was {value}, is now {ce[name].get(enumerator)}")
    added = [f"function {n}" for n in cf if n not in rf] + [f"struct {n}" for n in cs if n not in rs] + \
        [f"enum {n}" for n in ce if n not in re_] + [f"{n}" for n in cd if n not in rd]
    added += [f"enum {n}: {e}" for n in ce if n in re_ for e in ce[n] if e not in re_[n]]
    added += [f"struct {n}: {m}" for n in cs if n in rs for m in cs[n][len(rs[n]):]]
    return found, added


def exported(library):
    """The hb_ functions a shared library exports."""
    listing = subprocess.run(["nm", "-D", "--defined-only", library], capture_output=True, text=True, check=True)
    return {fields[2] for fields in (line.split() for line in listing.stdout.splitlines())
            if len(fields) == 3 and fields[1] == "T" and fields[2].startswith("hb_")}


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("header")
    parser.add_argument("record")
    parser.add_argument("soname")
    parser.add_argument("--library")
    parser.add_argument("--update", action="store_true")
    args = parser.parse_args()
    with open(args.header) as f:
        current = read_api(f.read())
    if args.update:
        write_record(args.record, args.soname, current)
        print(f"recorded the C API of {args.soname} in {args.record}")
        return 0
    soname, recorded = read_record(args.record)
    failures = []
    if soname != args.soname:
        failures.append(f"the SONAME is now {args.soname}, the record's {soname}: record the C API anew "
                        f"(scripts/check-c-abi.py ... --update)")
    else:
        broken, added = problems(recorded, current)
        failures += [f"{b}, under the same SONAME {soname}: change the SONAME (the version) or keep the "
                     f"interface" for b in broken]
        failures += [f"{a} is not in the record: record it (scripts/check-c-abi.py ... --update)" for a in added]
    if args.library:
        exports = exported(args.library)
        for name in sorted(set(current[0]) - exports):
            failures.append(f"{name} is declared but not exported by {args.library}")
        for name in sorted(exports - set(current[0])):
            failures.append(f"{name} is exported by {args.library} but not declared")
    for failure in failures:
        print(f"C ABI: {failure}", file=sys.stderr)
    if not failures:
        print(f"C ABI: {len(current[0])} functions, {len(current[1])} structs, {len(current[2])} enums and "
              f"{len(current[3])} constants as recorded for {soname}")
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
