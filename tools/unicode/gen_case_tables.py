#!/usr/bin/env python3
"""Generates src/utility/CaseTables.cpp, the case table of tvxcore.

The table has one row for every code unit of the Basic Multilingual Plane that
has a case mapping in the Unicode Character Database: its lower, upper and
folded forms. Lower and upper forms are the unconditional full mappings
(SpecialCasing.txt where it has a row without a condition, else the simple
mapping of UnicodeData.txt); the folded form is the full case folding (status C
and F of CaseFolding.txt). A form without a mapping is the unit itself.

The rows are stored as two-stage tables of 16-bit entries, one table per form,
sharing one pool of 256-entry blocks:

    entry = stage2[stage1[form][unit >> 8] + (unit & 0xFF)]
    mapped = (unit + entry) mod 0x10000

A single-unit form is never a surrogate, so `mapped` in D800..DFFF means "more
than one unit": `mapped - 0xD800` is then the offset in the expansion pool of a
length followed by that many units. A surrogate unit maps onto itself (entry 0),
which the reader tells apart because the unit itself is a surrogate. A bitmap
in the same two-stage form says which units are rows of the table.

Only the Python standard library is used. Usage:

    gen_case_tables.py [--ucd /usr/share/unicode] [--output FILE]
                       [--package-version VERSION]
"""

import argparse
import gzip
import hashlib
import os
import re
import sys

FORMS = ("lower", "upper", "fold")
SURROGATE_FIRST = 0xD800
SURROGATE_END = 0xE000
EXPANSION_LIMIT = SURROGATE_END - SURROGATE_FIRST
DEBIAN_CHANGELOG = "/usr/share/doc/unicode-data/changelog.Debian.gz"


def fail(message):
    sys.stderr.write("gen_case_tables: %s\n" % message)
    sys.exit(1)


def data_lines(path):
    """Yields the fields of every data line, comments removed."""
    with open(path, encoding="utf-8") as f:
        for line in f:
            line = line.split("#", 1)[0].strip()
            if line:
                yield [field.strip() for field in line.split(";")]


def units(text):
    return [int(x, 16) for x in text.split()]


def file_version(path, stem):
    with open(path, encoding="utf-8") as f:
        first = f.readline()
    m = re.match(r"#\s*%s-(\d+\.\d+\.\d+)\.txt" % re.escape(stem), first)
    if not m:
        fail("%s does not name its Unicode version on its first line" % path)
    return m.group(1)


def package_version():
    try:
        with gzip.open(DEBIAN_CHANGELOG, "rt", encoding="utf-8") as f:
            first = f.readline()
    except OSError:
        fail("cannot read %s; pass --package-version" % DEBIAN_CHANGELOG)
    m = re.match(r"unicode-data \(([^)]+)\)", first)
    if not m:
        fail("cannot find the package version in %s" % DEBIAN_CHANGELOG)
    return m.group(1)


def sha256(path):
    with open(path, "rb") as f:
        return hashlib.sha256(f.read()).hexdigest()


def read_rows(ucd):
    """Returns {unit: (lower, upper, fold)} for the rows of the table."""
    simple = {"lower": {}, "upper": {}}
    for f in data_lines(os.path.join(ucd, "UnicodeData.txt")):
        cp = int(f[0], 16)
        if f[12]:
            simple["upper"][cp] = units(f[12])
        if f[13]:
            simple["lower"][cp] = units(f[13])

    special = {"lower": {}, "upper": {}}
    for f in data_lines(os.path.join(ucd, "SpecialCasing.txt")):
        if len(f) > 4 and f[4]:
            continue  # conditional (final sigma, by language): never applied
        cp = int(f[0], 16)
        special["lower"][cp] = units(f[1])
        special["upper"][cp] = units(f[3])

    fold = {}
    for f in data_lines(os.path.join(ucd, "CaseFolding.txt")):
        if f[1] in ("C", "F"):
            fold[int(f[0], 16)] = units(f[2])

    rows = {}
    for cp in range(0x10000):
        if SURROGATE_FIRST <= cp < SURROGATE_END:
            continue
        lower = special["lower"].get(cp, simple["lower"].get(cp, [cp]))
        upper = special["upper"].get(cp, simple["upper"].get(cp, [cp]))
        folded = fold.get(cp, [cp])
        if lower == [cp] and upper == [cp] and folded == [cp]:
            continue
        for form in (lower, upper, folded):
            if any(u > 0xFFFF for u in form):
                fail("U+%04X maps beyond the Basic Multilingual Plane" % cp)
            if len(form) == 1 and SURROGATE_FIRST <= form[0] < SURROGATE_END:
                fail("U+%04X maps onto a surrogate" % cp)
        rows[cp] = (lower, upper, folded)
    return rows


class Pool:
    """Deduplicated blocks of equal size, laid end to end."""

    def __init__(self, block_size):
        self.block_size = block_size
        self.blocks = []
        self.index = {}

    def add(self, block):
        key = tuple(block)
        if key not in self.index:
            self.index[key] = len(self.blocks)
            self.blocks.append(key)
        return self.index[key]


def build(rows):
    expansions = []  # flat: length, units...
    expansion_at = {}

    def entry(cp, form):
        if len(form) == 1:
            return (form[0] - cp) & 0xFFFF
        key = tuple(form)
        if key not in expansion_at:
            expansion_at[key] = len(expansions)
            expansions.append(len(form))
            expansions.extend(form)
        offset = expansion_at[key]
        if offset >= EXPANSION_LIMIT:
            fail("the expansion pool outgrew the surrogate range")
        return (SURROGATE_FIRST + offset - cp) & 0xFFFF

    pool = Pool(256)
    pool.add([0] * 256)  # block 0: no unit of the page has a mapping
    stage1 = []
    for k, form_name in enumerate(FORMS):
        pages = []
        for page in range(256):
            block = []
            for low in range(256):
                cp = (page << 8) | low
                row = rows.get(cp)
                block.append(entry(cp, row[k]) if row else 0)
            pages.append(pool.add(block) * 256)
        stage1.append(pages)

    bits = Pool(32)
    bits.add([0] * 32)
    member_stage1 = []
    for page in range(256):
        block = [0] * 32
        for low in range(256):
            if ((page << 8) | low) in rows:
                block[low >> 3] |= 1 << (low & 7)
        member_stage1.append(bits.add(block) * 32)

    return stage1, pool, expansions, member_stage1, bits


def array_lines(values, per_line, width):
    fmt = "0x%%0%dX" % width
    out = []
    for i in range(0, len(values), per_line):
        out.append("    " + ", ".join(fmt % v for v in values[i:i + per_line]) + ",")
    return out


def render(ucd, package, rows, built):
    stage1, pool, expansions, member_stage1, bits = built
    names = ("UnicodeData.txt", "SpecialCasing.txt", "CaseFolding.txt")
    unicode_version = file_version(os.path.join(ucd, "CaseFolding.txt"), "CaseFolding")
    if file_version(os.path.join(ucd, "SpecialCasing.txt"), "SpecialCasing") != unicode_version:
        fail("SpecialCasing.txt and CaseFolding.txt are of different Unicode versions")
    expanding = sum(1 for r in rows.values() if any(len(f) > 1 for f in r))

    out = []
    w = out.append
    w("// Generated by tools/unicode/gen_case_tables.py. Do not edit: change the")
    w("// generator and run it again; a test checks that this file is what it writes.")
    w("//")
    w("// Unicode Character Database %s, Debian package unicode-data %s." %
      (unicode_version, package))
    for name in names:
        w("//   %-18s sha256 %s" % (name, sha256(os.path.join(ucd, name))))
    w("// %d rows, %d with a form longer than one unit; %d blocks of 256 entries." %
      (len(rows), expanding, len(pool.blocks)))
    w("// clang-format off")
    w("")
    w('#include "utility/internal/CaseTables.h"')
    w("")
    w("namespace tvxcore::utility::internal {")
    w("")
    w('const char kCaseTablesUnicodeVersion[] = "%s";' % unicode_version)
    w("const std::size_t kCaseTableRowCount = %d;" % len(rows))
    w("")
    w("const std::uint16_t kCaseStage1[kCaseFormCount][256] = {")
    for k, form in enumerate(FORMS):
        w("  {  // %s" % form)
        out.extend(array_lines(stage1[k], 16, 4))
        w("  },")
    w("};")
    w("")
    w("const std::uint16_t kCaseStage2[%d] = {" % (len(pool.blocks) * 256))
    for b, block in enumerate(pool.blocks):
        w("    // block %d" % b)
        out.extend(array_lines(list(block), 16, 4))
    w("};")
    w("")
    w("const UTF16Char kCaseExpansions[%d] = {" % max(1, len(expansions)))
    i = 0
    while i < len(expansions):
        n = expansions[i]
        w("    %d, %s," % (n, ", ".join("0x%04X" % u for u in expansions[i + 1:i + 1 + n])))
        i += 1 + n
    if not expansions:
        w("    0,")
    w("};")
    w("")
    w("const std::uint16_t kCaseRowStage1[256] = {")
    out.extend(array_lines(member_stage1, 16, 4))
    w("};")
    w("")
    w("const std::uint8_t kCaseRowStage2[%d] = {" % (len(bits.blocks) * 32))
    for block in bits.blocks:
        out.extend(array_lines(list(block), 16, 2))
    w("};")
    w("")
    w("}  // namespace tvxcore::utility::internal")
    return "\n".join(out) + "\n"


def main():
    parser = argparse.ArgumentParser(description="Generates the case table of tvxcore.")
    parser.add_argument("--ucd", default="/usr/share/unicode",
                        help="folder of UnicodeData.txt, SpecialCasing.txt, CaseFolding.txt")
    parser.add_argument("--output", default=None,
                        help="file to write (default: src/utility/CaseTables.cpp of this tree)")
    parser.add_argument("--package-version", default=None,
                        help="version of the unicode-data package (default: read from Debian)")
    args = parser.parse_args()

    for name in ("UnicodeData.txt", "SpecialCasing.txt", "CaseFolding.txt"):
        if not os.path.isfile(os.path.join(args.ucd, name)):
            fail("%s is missing from %s (Debian package unicode-data)" % (name, args.ucd))
    output = args.output or os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..",
                                         "src", "utility", "CaseTables.cpp")
    package = args.package_version or package_version()

    rows = read_rows(args.ucd)
    text = render(args.ucd, package, rows, build(rows))
    with open(output, "w", encoding="utf-8", newline="\n") as f:
        f.write(text)


if __name__ == "__main__":
    main()
