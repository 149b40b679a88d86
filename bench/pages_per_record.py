#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""Counts the memory pages one traceMIN into a file handler touches.

Where the kernel flushes the TLB at every system call (page-table isolation
without PCID, as on many virtual machines), each of those pages costs a page
walk on every record, after the record's own write: this count, more than
the instruction count, is what the record's user-space time tracks there.

Runs perf_tracemin (a static build: make bench) under valgrind's lackey,
cuts its trace at the calls of CxFile_write, one per record, and prints the
median record's instructions and distinct code and data pages (4 KiB).

usage: pages_per_record.py [build-bench/bench/perf_tracemin]
"""
import os
import subprocess
import sys
import tempfile

RECORDS = 3000           # the program adds 1,000 of warm-up
FIRST, LAST = 2000, 2200  # records measured, well inside the run


def main():
    program = sys.argv[1] if len(sys.argv) > 1 else "build-bench/bench/perf_tracemin"
    symbols = subprocess.run(["nm", program], capture_output=True, text=True, check=True).stdout
    offsets = [int(line.split()[0], 16) for line in symbols.splitlines()
               if line.endswith(" CxFile_write")]
    if not offsets:
        sys.exit("no CxFile_write in %s: a static build is needed" % program)
    with tempfile.TemporaryDirectory() as tmp:
        log = os.path.join(tmp, "lackey.txt")
        subprocess.run(["valgrind", "--tool=lackey", "--trace-mem=yes", "--log-file=" + log,
                        program, str(RECORDS)], capture_output=True, check=True)
        # valgrind loads a position-independent program at this base.
        mark = 0x108000 + offsets[0]
        records, code, data, count, seen = [], set(), set(), 0, 0
        with open(log) as f:
            for line in f:
                parts = line.split()
                if len(parts) < 2 or parts[0] not in ("I", "L", "S", "M"):
                    continue
                try:
                    addr = int(parts[1].split(",")[0], 16)
                except ValueError:
                    continue
                if parts[0] == "I" and addr == mark:
                    seen += 1
                    if seen > FIRST:
                        records.append((count, len(code), len(data)))
                    if seen == LAST:
                        break
                    code, data, count = set(), set(), 0
                if parts[0] == "I":
                    code.add(addr >> 12)
                    count += 1
                else:
                    data.add(addr >> 12)
    if not records:
        sys.exit("the trace held no records")
    records.sort(key=lambda r: r[1] + r[2])
    n, c, d = records[len(records) // 2]
    print("median record: %d instructions, %d code pages, %d data pages (%d in all)" % (n, c, d, c + d))


if __name__ == "__main__":
    main()
