#!/usr/bin/python3
"""pyodbc executemany of many rows into a fresh workbook, fast_executemany off and on, the
two taking turns in one run (off, on, off, on, ...) so both meet the same machine states.

Off, pyodbc runs SQLExecute once per row: one statement, one journal record and one sync
each. On, it binds every row as one array of parameter sets and calls SQLExecute once: the
driver runs the sets under one lock and syncs the journal once.

--dates adds a column of dates: a statement with a date parameter runs on the SQL engine,
one run of the statement per set. Only fast_executemany on is timed then: off, every row
rewrites the workbook.

Usage: executemany_bench.py <libxlsodbc.so> [rows=65535] [turns=2] [--dates]   (prints figures)"""
import datetime
import os
import shutil
import statistics
import sys
import tempfile
import time

import pyodbc

args = [a for a in sys.argv[1:] if a != "--dates"]
dates = len(args) < len(sys.argv) - 1
driver = args[0]
rows_wanted = int(args[1]) if len(args) > 1 else 65535
turns = int(args[2]) if len(args) > 2 else 2

work = tempfile.mkdtemp(prefix="xlsodbc-many-")
try:
    with open(os.path.join(work, "odbcinst.ini"), "w") as f:
        f.write("[Excel Workbook Driver (*.xls)]\nDriver = %s\n" % driver)
    open(os.path.join(work, "odbc.ini"), "w").close()
    os.environ["ODBCSYSINI"] = work
    os.environ["ODBCINI"] = os.path.join(work, "odbc.ini")

    # Row 1 is the header: 65,535 records fill the sheet.
    rows = [("item %d" % i, i, i * 0.25, "note %d" % (i % 97)) for i in range(rows_wanted)]
    columns = "[name] char(255), [n] char(255), [x] char(255), [note] char(255)"
    markers = "?, ?, ?, ?"
    if dates:
        day = datetime.date(2000, 1, 1)
        rows = [r + (day + datetime.timedelta(days=i % 9000),) for i, r in enumerate(rows)]
        columns += ", [day] date"
        markers += ", ?"

    def turn(fast, k):
        book = os.path.join(work, "%s-%d.xls" % ("on" if fast else "off", k))
        cs = "DRIVER={Excel Workbook Driver (*.xls)};CREATE_DB=%s;DBQ=%s" % (book, book)
        cn = pyodbc.connect(cs, autocommit=True)
        cur = cn.cursor()
        cur.execute("CREATE TABLE [T] (%s)" % columns)
        cur.fast_executemany = fast
        start = time.perf_counter()
        cur.executemany("INSERT INTO [T] VALUES (%s)" % markers, rows)
        elapsed = time.perf_counter() - start
        count = cur.execute("SELECT [n] FROM [T]").fetchall()
        assert len(count) == len(rows), (len(count), len(rows))
        cn.close()  # folds the journal into the workbook (not timed)
        os.remove(book)
        return elapsed

    modes = (True,) if dates else (False, True)
    times = {False: [], True: []}
    for k in range(turns):
        for fast in modes:
            t = turn(fast, k)
            times[fast].append(t)
            print("turn %d  fast_executemany=%-5s %8.2f s  %9.0f rows/s" %
                  (k + 1, fast, t, len(rows) / t), flush=True)
    width = 5 if dates else 4
    if dates:
        on = statistics.median(times[True])
        print("executemany of %d rows x %d columns (one of dates), fast_executemany on: %.2f s, "
              "%.0f rows/s (median of %d turns)" % (len(rows), width, on, len(rows) / on, turns))
    else:
        off, on = statistics.median(times[False]), statistics.median(times[True])
        print("executemany of %d rows x %d columns: off %.2f s, on %.2f s (medians of %d turns): "
              "on is %.1fx faster" % (len(rows), width, off, on, turns, off / on))
finally:
    shutil.rmtree(work)
