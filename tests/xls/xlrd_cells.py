#!/usr/bin/env python3
"""Prints what python3-xlrd reads from an .xls file in the form XlsVersionsTest compares:
the BIFF version, then per sheet its name and each non-empty cell, then the defined names
that stand for one area of one sheet. Values are exact ('%.17g'); text escapes \\, tab and
newline. A lone Excel 2-4 worksheet has no name in the file: xlrd calls it "Sheet 1",
printed as "Sheet1", the name the codec gives it."""
import os
import sys
import xlrd
from xlrd.formula import oREF


def text(s):
    return s.replace("\\", "\\\\").replace("\t", "\\t").replace("\n", "\\n")


book = xlrd.open_workbook(sys.argv[1], logfile=open(os.devnull, "w"))
out = ["biff %d" % book.biff_version]
kinds = {xlrd.XL_CELL_TEXT: "text", xlrd.XL_CELL_NUMBER: "number", xlrd.XL_CELL_DATE: "date",
         xlrd.XL_CELL_BOOLEAN: "bool", xlrd.XL_CELL_ERROR: "error"}
for sheet in book.sheets():
    name = "Sheet1" if book.biff_version < 45 else sheet.name
    out.append("sheet %s" % text(name))
    for r in range(sheet.nrows):
        for c in range(sheet.ncols):
            cell = sheet.cell(r, c)
            if cell.ctype not in kinds:
                continue
            v = text(cell.value) if cell.ctype == xlrd.XL_CELL_TEXT else "%.17g" % cell.value
            out.append("%d %d %s %s" % (r, c, kinds[cell.ctype], v))
for n in book.name_obj_list:
    res = n.result
    if res is None or res.kind != oREF or len(res.value) != 1:
        continue
    s0, s1, r0, r1, c0, c1 = res.value[0].coords
    if s1 - s0 != 1 or n.scope < -1:
        continue
    out.append("name %s %d %d %d %d %d %d" % (text(n.name), n.scope, s0, r0, r1 - 1, c0, c1 - 1))
print("\n".join(out))
