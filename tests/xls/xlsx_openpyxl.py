#!/usr/bin/python3
"""openpyxl as an independent .xlsx writer and reader for the codec's tests.

  xlsx_openpyxl.py write PATH   writes the workbook XlsxPeersTest expects
  xlsx_openpyxl.py dump PATH    prints every cell holding a value or bold text as
                                SHEET!REF<TAB>TYPE<TAB>VALUE<TAB>BOLD<TAB>FORMAT,
                                and each set column width as SHEET!COL<TAB>width<TAB>WIDTH
"""
import datetime
import sys

import openpyxl
from openpyxl.styles import Alignment, Border, Font, Side


def write(path):
    wb = openpyxl.Workbook()
    ws = wb.active
    ws.title = "Data"
    ws.append(["name", "count", "price", "when", "ok"])
    for cell in ws[1]:
        cell.font = Font(bold=True)
    ws.append(["Zoë", 3, -2.5, datetime.datetime(2024, 2, 29, 13, 45), True])
    ws.append(["x & <y>", 1234567890123, 0.1, datetime.date(1999, 12, 31), False])
    ws["C2"].number_format = "0.000"
    ws["D3"].number_format = "yyyy-mm-dd"
    ws["A3"].alignment = Alignment(horizontal="right", vertical="top")
    ws["B3"].border = Border(left=Side(style="thin"), bottom=Side(style="thick"))
    ws["E4"] = "=1+2"  # a formula without a cached result: reads as empty
    ws["A5"] = "#N/A"
    ws["A5"].data_type = "e"
    ws.column_dimensions["A"].width = 25
    second = wb.create_sheet("Zweite Seite")
    second["B2"] = "second sheet"
    second["XFD1048576"] = 42
    wb.save(path)


def dump(path):
    wb = openpyxl.load_workbook(path)
    for ws in wb.worksheets:
        for _, c in sorted(ws._cells.items()):  # stored cells only: the sheet reaches XFD1048576
            bold = bool(c.font and c.font.b)
            if c.value is None and not bold:
                continue
            value = c.value.isoformat() if hasattr(c.value, "isoformat") else repr(c.value)
            print("%s!%s\t%s\t%s\t%d\t%s" % (ws.title, c.coordinate, c.data_type, value, bold,
                                             c.number_format))
        for letter, dim in sorted(ws.column_dimensions.items()):
            if dim.customWidth:
                print("%s!%s\twidth\t%g" % (ws.title, letter, dim.width))


if __name__ == "__main__":
    {"write": write, "dump": dump}[sys.argv[1]](sys.argv[2])
