#!/usr/bin/python3
"""Every statement family the driver answers, through python3-pyodbc on a small workbook that
python3-xlwt writes (numbers, text, date cells with a date format, booleans): each case's
rows, read back typed, and the column types cursor.description reports. The same cases make
the table in odbc-driver/README.md ("SQL by example"); the test fails when the two differ.

Usage: pyodbc_sql_test.py <driver.so>            run the cases
       pyodbc_sql_test.py <driver.so> --markdown print the README table"""
import datetime
import os
import shutil
import sys
import tempfile

import pyodbc

import odbc_fixture
import xlwt

D = datetime.datetime

# (family, statement, parameters, expected rows). A statement that changes data is followed
# by the SELECT of the next case, which shows its effect.
CASES = [
    ("SELECT *, typed values", "SELECT * FROM [People$] WHERE Name = 'Bob'", (),
     [("Bob", "IT", 6000.0, D(2024, 2, 29), False)]),
    ("Column list, WHERE (the dialect)", "SELECT Name FROM [People$] WHERE Salary > 5000", (),
     [("Bob",), ("Di",)]),
    ("ORDER BY, DESC", "SELECT Name FROM [People$] ORDER BY Salary DESC", (),
     [("Bob",), ("Di",), ("Ann",), ("Cy",)]),
    ("DISTINCT", "SELECT DISTINCT Dept FROM [People$] ORDER BY Dept", (),
     [("HR",), ("IT",), ("Sales",)]),
    ("COUNT(*), SUM, AVG, MIN, MAX",
     "SELECT COUNT(*), SUM(Salary), AVG(Salary), MIN(Salary), MAX(Salary) FROM [People$]", (),
     [(4, 20500.0, 5125.0, 4000.0, 6000.0)]),
    ("GROUP BY, HAVING",
     "SELECT Dept, COUNT(*) AS n FROM [People$] GROUP BY Dept HAVING COUNT(*) > 1", (),
     [("IT", 2)]),
    ("Expressions, AS aliases", "SELECT Name, Salary * 2 AS twice FROM [People$] WHERE Name = 'Cy'",
     (), [("Cy", 8000.0)]),
    ("LIKE", "SELECT Name FROM [People$] WHERE Name LIKE 'B%'", (), [("Bob",)]),
    ("IN", "SELECT Name FROM [People$] WHERE Dept IN ('HR', 'Sales') ORDER BY Name", (),
     [("Ann",), ("Di",)]),
    ("BETWEEN", "SELECT Name FROM [People$] WHERE Salary BETWEEN 4500 AND 5600 ORDER BY Name", (),
     [("Ann",), ("Di",)]),
    ("Join between sheets, table aliases",
     "SELECT p.Name, d.Floor FROM [People$] p JOIN [Depts$] d ON p.Dept = d.Dept "
     "WHERE d.Floor = 2 ORDER BY p.Name", (), [("Bob", 2.0), ("Cy", 2.0)]),
    ("Subquery",
     "SELECT Name FROM [People$] WHERE Salary > (SELECT AVG(Salary) FROM [People$]) ORDER BY Name",
     (), [("Bob",), ("Di",)]),
    ("TOP n", "SELECT TOP 2 Name FROM [People$] ORDER BY Name", (), [("Ann",), ("Bob",)]),
    ("LIMIT n", "SELECT Name FROM [People$] ORDER BY Name DESC LIMIT 1", (), [("Di",)]),
    ("-- comments", "SELECT Name -- who\nFROM [People$] WHERE Dept = 'HR'", (), [("Di",)]),
    ("SELECT without FROM", "SELECT 1 + 1, 'a' || 'b'", (), [(2, "ab")]),
    ("{d} and {ts} escapes",
     "SELECT Name FROM [People$] WHERE Hired < {d '2020-01-01'} "
     "OR Hired = {ts '2024-02-29 00:00:00'} ORDER BY Name", (), [("Bob",), ("Cy",)]),
    ("{fn UCASE()} escape", "SELECT {fn UCASE(Name)} FROM [People$] WHERE Dept = 'HR'", (),
     [("DI",)]),
    ("Dates compare as dates", "SELECT Name FROM [People$] WHERE Hired IN ('2024-02-29')", (),
     [("Bob",)]),
    ("(the dialect compares text)", "SELECT Name FROM [People$] WHERE Hired = '2024-02-29'", (),
     []),
    ("Date parameter", "SELECT Name FROM [People$] WHERE Hired = ?",
     (datetime.date(2021, 3, 10),), [("Di",)]),
    ("Booleans", "SELECT Name FROM [People$] WHERE Active = 0", (), [("Bob",)]),
    ("INSERT, multi-row VALUES",
     "INSERT INTO [Depts$] (Dept, Floor) VALUES ('Ops', 4), ('Law', 5)", (), 2),
    ("(effect)", "SELECT Dept, Floor FROM [Depts$] WHERE Floor > 3", (),
     [("Ops", 4.0), ("Law", 5.0)]),
    ("INSERT ... SELECT",
     "INSERT INTO [Depts$] (Dept, Floor) SELECT Name, 9 FROM [People$] WHERE Dept = 'HR'", (), 1),
    ("(effect)", "SELECT Dept FROM [Depts$] WHERE Floor = 9", (), [("Di",)]),
    ("INSERT of a date parameter", "INSERT INTO [People$] VALUES ('Ed', 'Ops', 100, ?, 1)",
     (datetime.date(2025, 5, 1),), 1),
    ("(effect)", "SELECT Hired, Active FROM [People$] WHERE Name = 'Ed'", (),
     [(D(2025, 5, 1), True)]),
    ("UPDATE with an expression", "UPDATE [People$] SET Salary = Salary + 1 WHERE Dept = 'IT'", (),
     2),
    ("(effect)", "SELECT SUM(Salary) FROM [People$] WHERE Dept = 'IT'", (), [(10002.0,)]),
    ("DELETE", "DELETE FROM [Depts$] WHERE Floor > 3", (), 3),
    ("(effect)", "SELECT COUNT(*) FROM [Depts$]", (), [(3,)]),
]


def make_workbook(path):
    wb = xlwt.Workbook()
    date = xlwt.easyxf(num_format_str="yyyy-mm-dd")
    people = wb.add_sheet("People")
    for c, name in enumerate(["Name", "Dept", "Salary", "Hired", "Active"]):
        people.write(0, c, name)
    rows = [("Ann", "Sales", 5000, D(2020, 1, 15), True), ("Bob", "IT", 6000, D(2024, 2, 29), False),
            ("Cy", "IT", 4000, D(2019, 7, 1), True), ("Di", "HR", 5500, D(2021, 3, 10), True)]
    for r, row in enumerate(rows, 1):
        for c, v in enumerate(row):
            people.write(r, c, v, date if isinstance(v, D) else xlwt.Style.default_style)
    depts = wb.add_sheet("Depts")
    for r, row in enumerate([("Dept", "Floor"), ("Sales", 1), ("IT", 2), ("HR", 3)]):
        for c, v in enumerate(row):
            depts.write(r, c, v)
    wb.save(path)


def show(v):
    if isinstance(v, datetime.datetime):
        return v.strftime("%Y-%m-%d %H:%M:%S")
    if isinstance(v, float) and v == int(v):
        return "%d.0" % v
    return repr(v) if isinstance(v, str) else str(v)


def markdown():
    out = ["| statement family | example | result |", "|---|---|---|"]
    for family, sql, params, expected in CASES:
        example = sql.replace("\n", " ⏎ ").replace("|", "\\|")  # ⏎: a line break
        if params:
            example += "  with ? = " + ", ".join(str(p) for p in params)
        if isinstance(expected, int):
            result = "%d row%s" % (expected, "" if expected == 1 else "s")
        else:
            result = "; ".join("(" + ", ".join(show(v) for v in row) + ")" for row in expected)
            result = result or "no rows"
        out.append("| %s | `%s` | %s |" % (family, example.replace("`", "'"), result.replace("|", "\\|")))
    return "\n".join(out) + "\n"


def main():
    driver = sys.argv[1]
    if sys.argv[2:] == ["--markdown"]:
        sys.stdout.write(markdown())
        return
    readme = os.path.join(os.environ["SPREADSHEET_SOURCE_DIR"], "odbc-driver", "README.md")
    with open(readme, encoding="utf-8") as f:
        assert markdown() in f.read(), "README.md's table differs from the cases: regenerate it"

    work = tempfile.mkdtemp(prefix="xlsodbc-sql-")
    try:
        odbc_fixture.register_driver(driver, work)
        book = os.path.join(work, "people.xls")
        make_workbook(book)
        cn = pyodbc.connect("DRIVER={Excel Workbook Driver (*.xls, *.xlsx, *.xlsm)};DBQ=" + book, autocommit=True)
        cur = cn.cursor()
        failures = []
        for family, sql, params, expected in CASES:
            try:
                cur.execute(sql, *params)
                got = cur.rowcount if isinstance(expected, int) else [tuple(r) for r in cur.fetchall()]
            except pyodbc.Error as e:
                got = "error %s" % (e.args,)
            if got != expected:
                failures.append("%s: %s\n  expected %r\n  got      %r" % (family, sql, expected, got))
        # The types each column reports, for SELECT * through the dialect's own fast path too.
        cur.execute("SELECT * FROM [People$]")
        types = [(d[0], d[1]) for d in cur.description]
        want = [("Name", str), ("Dept", str), ("Salary", float), ("Hired", datetime.datetime),
                ("Active", bool)]
        if types != want:
            failures.append("SELECT * description: %r" % (types,))
        cur.execute("SELECT COUNT(*) AS n, MAX(Name) AS m FROM [People$]")
        if [(d[0], d[1]) for d in cur.description] != [("n", int), ("m", str)]:
            failures.append("aggregate description: %r" % (cur.description,))
        cols = {c.column_name: (c.type_name, c.column_size) for c in cur.columns(table="People$")}
        if cols != {"Name": ("VARCHAR", 255), "Dept": ("VARCHAR", 255), "Salary": ("DOUBLE", 15),
                    "Hired": ("TIMESTAMP", 19), "Active": ("BIT", 1)}:
            failures.append("SQLColumns: %r" % (cols,))
        cn.close()
        # The engine's changes are in the file itself, as xlrd reads it.
        import xlrd
        wb = xlrd.open_workbook(book)
        depts = wb.sheet_by_name("Depts")
        if depts.nrows != 4:
            failures.append("xlrd: Depts has %d rows" % depts.nrows)
        people = wb.sheet_by_name("People")
        if people.cell(5, 3).ctype != xlrd.XL_CELL_DATE:
            failures.append("xlrd: the date parameter is no date cell: %r" % (people.cell(5, 3),))
        if failures:
            sys.exit("\n".join(failures))
    finally:
        shutil.rmtree(work)


main()
