"""Reads a workbook made by `sheet report` with xlrd (formatting_info) and checks what the
user sees: sheet names and order, bold and centred heading rows, medium header borders,
thin data borders only for a table with rows, and no value in any cell."""
import sys

import xlrd

path, counts = sys.argv[1], [int(n) for n in sys.argv[2:5]]
book = xlrd.open_workbook(path, formatting_info=True)
tables = [("RMS", 31), ("Price Protection", 11), ("Script Validation", 12)]
assert book.sheet_names() == [t[0] for t in tables], book.sheet_names()
MEDIUM, THIN, NONE = 2, 1, 0
CENTRE = 1  # xlrd's vert_align for "centre"
problems = []
for (name, columns), rows in zip(tables, counts):
    sheet = book.sheet_by_name(name)
    last_row = rows + 3
    for r in range(last_row + 1):
        for c in range(columns + 1):
            if r < sheet.nrows and c < sheet.ncols:
                cell = sheet.cell(r, c)
                if cell.ctype not in (xlrd.XL_CELL_EMPTY, xlrd.XL_CELL_BLANK):
                    problems.append(f"{name} {r + 1},{c + 1}: holds {cell.value!r}")
                xf = book.xf_list[sheet.cell_xf_index(r, c)]
            else:
                xf = book.xf_list[15]  # the default cell format
            inside = c < columns
            heading = inside and r in (1, 2)
            want = NONE if not inside else MEDIUM if r < 3 else THIN if r < last_row and rows > 0 else NONE
            font = book.font_list[xf.font_index]
            b = xf.border
            got = (bool(font.bold), xf.alignment.vert_align == CENTRE,
                   b.left_line_style, b.right_line_style, b.top_line_style, b.bottom_line_style)
            if got != (heading, heading, want, want, want, want):
                problems.append(f"{name} row {r + 1} column {c + 1}: {got}")
if problems:
    print("\n".join(problems[:20]))
    sys.exit(1)
print("ok")
