#!/usr/bin/env python3
"""Writes an .xls with python3-xlwt (an independent writer) for the reader tests:
two sheets, shared strings past a CONTINUE boundary, numbers, a date, booleans,
a formula, an empty gap and non-ASCII text."""
import datetime
import sys
import xlwt

book = xlwt.Workbook(encoding="utf-8")
a = book.add_sheet("Alpha")
a.write(0, 0, "Zoë ünïcode €")
a.write(0, 1, 42.25)
a.write(0, 2, True)
a.write(0, 3, datetime.datetime(2024, 2, 29, 12, 0), xlwt.easyxf(num_format_str="yyyy-mm-dd hh:mm"))
a.write(0, 5, "日本語")
a.write(1, 0, 7)
a.write(1, 1, xlwt.Formula("A2*2"))
bold = xlwt.easyxf("font: bold on; borders: bottom thick; align: vert top")
a.write(2, 0, "bold", bold)
b = book.add_sheet("Beta")
for r in range(2000):
    b.write(r, 0, "string number %d with some padding" % r)
book.save(sys.argv[1])
