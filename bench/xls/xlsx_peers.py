#!/usr/bin/python3
"""openpyxl's side of xlsx_bench; prints its seconds, start-up excluded.

  xlsx_peers.py write PATH ROWS   write-only mode, the bench's sheet
  xlsx_peers.py read PATH         read-only mode, every value visited
"""
import sys
import time

import openpyxl


def write(path, rows):
    start = time.perf_counter()
    wb = openpyxl.Workbook(write_only=True)
    ws = wb.create_sheet("Data")
    for r in range(rows):
        ws.append([r * 0.5 + c for c in range(5)] +
                  ["item %d" % ((r * 7 + c) % 100000) for c in range(5, 10)])
    wb.save(path)
    print(time.perf_counter() - start)


def read(path):
    start = time.perf_counter()
    wb = openpyxl.load_workbook(path, read_only=True)
    n = 0
    for row in wb.worksheets[0].iter_rows(values_only=True):
        for v in row:
            if v is not None:
                n += 1
    print(time.perf_counter() - start, n)


if __name__ == "__main__":
    if sys.argv[1] == "write":
        write(sys.argv[2], int(sys.argv[3]))
    else:
        read(sys.argv[2])
