#!/usr/bin/python3
"""python3-pyodbc drives the driver the way Python programs do (autocommit off, W calls,
SQL_C_WCHAR data, parameters), then xlrd reads the file it left behind.

Usage: pyodbc_test.py <driver.so> (env XLSODBC_PRELOAD is applied by the caller)."""
import os
import shutil
import sys
import tempfile

import pyodbc

import odbc_fixture

driver = sys.argv[1]
work = tempfile.mkdtemp(prefix="xlsodbc-pyodbc-")
try:
    odbc_fixture.register_driver(driver, work)

    names = [d for d in pyodbc.drivers() if "Excel" in d]
    assert names == ["Excel Workbook Driver (*.xls, *.xlsx, *.xlsm)"], pyodbc.drivers()

    book = os.path.join(work, "py book.xls")
    cs = ('DRIVER={Excel Workbook Driver (*.xls, *.xlsx, *.xlsm)};DSN=\'\';FIRSTROWHASNAMES=1;READONLY=FALSE;'
          'CREATE_DB="%s";DBQ=%s' % (book, book))
    cn = pyodbc.connect(cs)
    cur = cn.cursor()
    cur.execute("CREATE TABLE [Sheet1] ([Name] char(255), [Qty] char(255))")
    cur.execute("INSERT INTO [Sheet1$A4:X4] VALUES ('abc', '10')")
    cur.execute("INSERT INTO [Sheet1$A3:IV1] VALUES (abc, 10)")
    cur.execute("INSERT INTO [Sheet1] VALUES (?, ?)", "Zoë", 7.5)
    assert cur.execute("UPDATE [Sheet1] SET [Qty]='11' WHERE ([Name]='abc' AND [Qty]='10' )").rowcount == 2
    cn.commit()
    rows = [tuple(r) for r in cur.execute("SELECT * FROM [Sheet1$A1:IV65536]")]
    assert [c[0] for c in cur.description] == ["Name", "Qty"], cur.description
    assert rows == [("abc", "11"), ("abc", "11"), ("Zoë", "7.5")], rows

    try:
        cur.execute("UPDATE [S] SET [K]='1' WHE)")
        raise AssertionError("malformed UPDATE accepted")
    except pyodbc.ProgrammingError as e:
        assert e.args[0] == "42000" and "[Excel Workbook Driver]" in e.args[1], e.args
    try:
        cur.execute("SELECT * FROM [Missing$A1:IV65536]")
        raise AssertionError("missing sheet accepted")
    except pyodbc.Error as e:
        assert e.args[0] == "42S02" and "'Missing'" in e.args[1], e.args
    # Non-ASCII names survive whatever the locale (the test runs under LC_ALL=C).
    cur.execute("CREATE TABLE [Données] ([Prénom] char(255), [Été] char(255))")
    cur.execute("INSERT INTO [Données] VALUES ('Zoë', 'août')")
    rows = [tuple(r) for r in cur.execute("SELECT [Prénom], [Été] FROM [Données$] WHERE [Été] = 'août'")]
    assert [c[0] for c in cur.description] == ["Prénom", "Été"], cur.description
    assert rows == [("Zoë", "août")], rows
    # Tables created by a bare name are also defined names: TABLEs before the SYSTEM TABLEs.
    tables = [(t.table_name, t.table_type) for t in cur.tables()]
    assert tables == [("Sheet1", "TABLE"), ("Données", "TABLE"), ("Sheet1$", "SYSTEM TABLE"),
                      ("Données$", "SYSTEM TABLE")], tables
    assert [c.column_name for c in cur.columns(table="Données$")] == ["Prénom", "Été"]
    cn.commit()  # autocommit is off: close() would roll the sheet back
    cn.close()

    import xlrd
    wb = xlrd.open_workbook(book)
    sh = wb.sheet_by_name("Sheet1")
    got = [[sh.cell_value(r, c) for c in range(sh.ncols)] for r in range(sh.nrows)]
    assert got == [["Name", "Qty"], ["abc", "11"], ["abc", "11"], ["Zoë", 7.5]], got
    sh = wb.sheet_by_name("Données")
    assert sh.row_values(0) == ["Prénom", "Été"] and sh.row_values(1) == ["Zoë", "août"]
    names = [(n.name, n.scope, n.result.value[0].coords) for n in wb.name_obj_list]
    assert names == [("Sheet1", -1, (0, 1, 0, 65536, 0, 2)),
                     ("Données", -1, (1, 2, 0, 65536, 0, 2))], names

    cn = pyodbc.connect(cs, autocommit=True)
    cn.execute("DROP TABLE [Sheet1$A1:IV65536]")
    assert cn.execute("SELECT * FROM [Sheet1$A1:IV65536]").description is None  # no columns left
    cn.close()
    assert xlrd.open_workbook(book).sheet_by_name("Sheet1").nrows == 0
    print("PASS")
finally:
    shutil.rmtree(work)
