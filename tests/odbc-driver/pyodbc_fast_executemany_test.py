#!/usr/bin/python3
"""pyodbc's fast_executemany sends all rows in one SQLExecute: row-wise bound arrays of
parameters at an offset from a fake base address, a parameter set per row. The rows must
come back exactly, also from the file (xlrd), and a set that fails must raise.

Usage: pyodbc_fast_executemany_test.py <driver.so> (env XLSODBC_PRELOAD is applied by the caller)."""
import datetime
import os
import shutil
import sys
import tempfile

import pyodbc

import odbc_fixture

driver = sys.argv[1]
work = tempfile.mkdtemp(prefix="xlsodbc-fast-")
try:
    odbc_fixture.register_driver(driver, work)

    book = os.path.join(work, "many.xls")
    cs = "DRIVER={Excel Workbook Driver (*.xls, *.xlsx, *.xlsm)};CREATE_DB=%s;DBQ=%s" % (book, book)
    cn = pyodbc.connect(cs, autocommit=True)
    cur = cn.cursor()
    cur.execute("CREATE TABLE [T] ([name] char(255), [n] char(255), [x] char(255), [d] char(255))")
    # Text of every length up to the column size pyodbc is told (255), non-ASCII included,
    # integers, floats and dates: one array of a few thousand parameter sets. Then rows with
    # NULLs, where pyodbc starts a new array each time a column's C type changes.
    rows = [("r%d-é€%s" % (i, "x" * (i % 240)), i * 7 - 5000, i / 8.0,
             datetime.datetime(2024, 1 + i % 12, 1 + i % 28, i % 24, 0, 1)) for i in range(3000)]
    rows += [("n%d" % i if i % 3 else None, i, None if i % 4 == 0 else 0.5, None) for i in range(200)]
    cur.fast_executemany = True
    cur.executemany("INSERT INTO [T] VALUES (?, ?, ?, ?)", rows[:3000])
    cur.executemany("INSERT INTO [T] VALUES (?, ?, ?, ?)", rows[3000:])

    # Columns of numbers and of dates read back typed (DOUBLE, TIMESTAMP).
    def expected(r):
        return (r[0], float(r[1]), None if r[2] is None else float(r[2]), r[3])

    got = [tuple(r) for r in cur.execute("SELECT * FROM [T]")]
    want = [expected(r) for r in rows]
    assert len(got) == len(want), (len(got), len(want))
    for g, w in zip(got, want):
        assert g == w, (g, w)

    # A batch whose first set fails raises, and adds nothing.
    try:
        cur.executemany("INSERT INTO [Missing] VALUES (?, ?)", [("a", 1), ("b", 2)])
        raise AssertionError("a batch into a missing table succeeded")
    except pyodbc.Error as e:
        assert e.args[0] == "42S02", e.args
    cn.close()

    import xlrd
    sh = xlrd.open_workbook(book).sheet_by_name("T")
    assert sh.nrows == len(rows) + 1, sh.nrows
    assert sh.row_values(1)[0] == rows[0][0] and sh.row_values(3000)[0] == rows[2999][0]
    print("PASS")
finally:
    shutil.rmtree(work)
