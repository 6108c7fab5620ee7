// SheetJS (npm "xlsx") as an independent .xlsx writer and reader for the codec's tests.
//   node xlsx_sheetjs.js MODULE_DIR write PATH   writes the workbook XlsxPeersTest expects
//   node xlsx_sheetjs.js MODULE_DIR dump PATH    prints SHEET!REF<TAB>TYPE<TAB>VALUE<TAB>FORMAT
//                                                 for every cell, and SHEET!COL<TAB>width<TAB>CHARS
"use strict";
const XLSX = require(require("path").resolve(process.argv[2], "xlsx"));
const [mode, path] = process.argv.slice(3);

if (mode === "write") {
  const ws = XLSX.utils.aoa_to_sheet([
    ["label", "amount", "day"],
    ["Ünïcode ☃", 12.75, new Date(Date.UTC(2021, 6, 4))],
    ["negative", -3, true],
  ], {cellDates: true});
  ws["B2"].z = "#,##0.00";
  ws["C2"].z = "yyyy-mm-dd";
  ws["!cols"] = [{wch: 30}];
  const wb = XLSX.utils.book_new();
  XLSX.utils.book_append_sheet(wb, ws, "Tabelle");
  XLSX.utils.book_append_sheet(wb, XLSX.utils.aoa_to_sheet([[1], [2]]), "Zwei");
  XLSX.writeFile(wb, path);
} else {
  const wb = XLSX.readFile(path, {cellNF: true, cellStyles: true});
  for (const name of wb.SheetNames) {
    const ws = wb.Sheets[name];
    for (const ref of Object.keys(ws)) {
      if (ref[0] === "!") continue;
      const c = ws[ref];
      console.log(`${name}!${ref}\t${c.t}\t${c.v}\t${c.z || ""}`);
    }
    (ws["!cols"] || []).forEach((col, i) => {
      if (col && col.wch) console.log(`${name}!${XLSX.utils.encode_col(i)}\twidth\t${col.wch}`);
    });
  }
}
