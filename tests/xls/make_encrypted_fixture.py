#!/usr/bin/env python3
"""Writes password-protected "MS Excel 97" workbooks with LibreOffice (an independent
writer) for the decryption tests, through python3-uno:

    make_encrypted_fixture.py PROFILE_DIR IN.csv OUT.xls PASSWORD [OUT.xls PASSWORD ...]

Each OUT.xls holds IN.csv; an empty PASSWORD writes it unprotected. LibreOffice runs
headless with its own profile in PROFILE_DIR and is ended before exit."""
import os
import subprocess
import sys
import time

import uno
from com.sun.star.beans import PropertyValue
from com.sun.star.connection import NoConnectException
from com.sun.star.lang import DisposedException


def prop(name, value):
    p = PropertyValue()
    p.Name = name
    p.Value = value
    return p


def main():
    profile, csv = sys.argv[1:3]
    outputs = list(zip(sys.argv[3::2], sys.argv[4::2]))
    pipe = "xls_encrypted_fixture_%d" % os.getpid()
    office = subprocess.Popen(
        ["soffice", "-env:UserInstallation=" + uno.systemPathToFileUrl(profile), "--headless",
         "--invisible", "--norestore", "--nologo", "--accept=pipe,name=%s;urp;" % pipe],
        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        local = uno.getComponentContext()
        resolver = local.ServiceManager.createInstanceWithContext(
            "com.sun.star.bridge.UnoUrlResolver", local)
        context = None
        deadline = time.time() + 120
        while context is None:
            try:
                context = resolver.resolve(
                    "uno:pipe,name=%s;urp;StarOffice.ComponentContext" % pipe)
            except NoConnectException:
                if time.time() > deadline or office.poll() is not None:
                    sys.exit("LibreOffice did not start")
                time.sleep(0.2)
        desktop = context.ServiceManager.createInstanceWithContext(
            "com.sun.star.frame.Desktop", context)
        # Comma separated, double quotes, UTF-8 (76), from line 1.
        doc = desktop.loadComponentFromURL(
            uno.systemPathToFileUrl(os.path.abspath(csv)), "_blank", 0,
            (prop("Hidden", True), prop("FilterName", "Text - txt - csv (StarCalc)"),
             prop("FilterOptions", "44,34,76,1")))
        for out, password in outputs:
            args = [prop("FilterName", "MS Excel 97")]
            if password:
                args.append(prop("Password", password))
            doc.storeToURL(uno.systemPathToFileUrl(os.path.abspath(out)), tuple(args))
        doc.close(True)
        try:
            desktop.terminate()
        except DisposedException:
            pass
    finally:
        try:
            office.wait(timeout=60)
        except subprocess.TimeoutExpired:
            office.kill()
            office.wait()


if __name__ == "__main__":
    main()
