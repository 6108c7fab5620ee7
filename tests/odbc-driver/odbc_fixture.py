"""What every pyodbc test of the driver sets up first: a private odbcinst.ini registering
the driver just built, and an empty odbc.ini, in a folder of the test's own. unixODBC reads
these once, before the first ODBC call, so call this before connecting."""
import os


def register_driver(driver, work):
    with open(os.path.join(work, "odbcinst.ini"), "w") as f:
        f.write("[Excel Workbook Driver (*.xls, *.xlsx, *.xlsm)]\nDriver = %s\n" % driver)
    open(os.path.join(work, "odbc.ini"), "w").close()
    os.environ["ODBCSYSINI"] = work
    os.environ["ODBCINI"] = os.path.join(work, "odbc.ini")
