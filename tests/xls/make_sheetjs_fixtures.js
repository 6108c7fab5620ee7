// Writes one small workbook in each BIFF version SheetJS (the npm package "xlsx", an
// independent writer) supports, for XlsVersionsTest to read and compare with python3-xlrd.
// Usage: node make_sheetjs_fixtures.js <node_modules folder> <output folder>
const path = require("path");
const XLSX = require(path.join(process.argv[2], "xlsx"));
const out = process.argv[3];

const rows = [
  ["Name", "Amount", "When", "Flag"],
  ["Zoë €", 12.5, new Date(Date.UTC(2024, 1, 29)), true],
  ["plain", -3, new Date(Date.UTC(1999, 11, 31, 18, 30)), false],
  [42, 1e300, "tab\there", 0.1],
];
for (let r = 0; r < 40; ++r) rows.push(["row " + r, r * 1.25, r % 3 === 0, r]);
const book = XLSX.utils.book_new();
const first = XLSX.utils.aoa_to_sheet(rows, { cellDates: true, UTC: true });
XLSX.utils.book_append_sheet(book, first, "Data");
XLSX.utils.book_append_sheet(book, XLSX.utils.aoa_to_sheet([["second", 2]]), "Second");
for (const type of ["biff2", "biff3", "biff4", "biff5", "biff8"]) {
  XLSX.writeFile(book, path.join(out, type + ".xls"), { bookType: type });
}
