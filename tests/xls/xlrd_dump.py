#!/usr/bin/env python3
"""Prints every non-empty cell of an .xls file as python3-xlrd reads it, with the
formatting the codec carries, so a test can compare with what it wrote."""
import sys
import xlrd

book = xlrd.open_workbook(sys.argv[1], formatting_info=True)
out = []
for sheet in book.sheets():
    out.append("sheet %s" % sheet.name)
    for r in range(sheet.nrows):
        for c in range(sheet.ncols):
            cell = sheet.cell(r, c)
            xf = book.xf_list[cell.xf_index]
            font = book.font_list[xf.font_index]
            b = xf.border
            look = "bold=%d valign=%d halign=%d bottom=%d" % (
                font.bold, xf.alignment.vert_align, xf.alignment.hor_align, b.bottom_line_style)
            t = cell.ctype
            if t == xlrd.XL_CELL_EMPTY:
                continue
            if t == xlrd.XL_CELL_BLANK:
                out.append("%d %d blank left=%d right=%d top=%d" % (
                    r, c, b.left_line_style, b.right_line_style, b.top_line_style))
            elif t == xlrd.XL_CELL_TEXT:
                out.append("%d %d text %r %s" % (r, c, cell.value, look))
            elif t == xlrd.XL_CELL_NUMBER:
                out.append("%d %d number %r %s" % (r, c, cell.value, look))
            elif t == xlrd.XL_CELL_BOOLEAN:
                out.append("%d %d bool %d %s" % (r, c, cell.value, look))
            elif t == xlrd.XL_CELL_ERROR:
                out.append("%d %d error %d %s" % (r, c, cell.value, look))
            elif t == xlrd.XL_CELL_DATE:
                out.append("%d %d date %r %s" % (
                    r, c, xlrd.xldate_as_tuple(cell.value, book.datemode), look))
    for c, info in sorted(sheet.colinfo_map.items()):
        out.append("width %d %d" % (c, info.width))
print("\n".join(out))
