#!/usr/bin/env python3
"""Makes a large exchange file for benchmarks by repeating the data section
of a real file with its instance ids shifted, so every copy is a complete,
self-contained population.

Usage: make_large_ifc.py SOURCE.ifc TARGET.ifc [megabytes]   (default 120)
"""
import re
import sys


def main(argv):
    if len(argv) < 3:
        sys.stderr.write(__doc__)
        return 2
    source, target = argv[1], argv[2]
    megabytes = float(argv[3]) if len(argv) > 3 else 120.0
    with open(source, "rb") as handle:
        text = handle.read()
    start = text.index(b"DATA;") + len(b"DATA;")
    end = text.rindex(b"ENDSEC;")
    header, data = text[:start], text[start:end]
    highest = max(int(n) for n in re.findall(rb"#(\d+)", data))
    reference = re.compile(rb"#(\d+)")
    with open(target, "wb") as out:
        out.write(header)
        copy = 0
        while out.tell() < megabytes * 1048576:
            shift = copy * (highest + 1)
            out.write(reference.sub(lambda m: b"#%d" % (int(m.group(1)) + shift), data))
            copy += 1
        out.write(b"ENDSEC;\nEND-ISO-10303-21;\n")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
