// SheetJS's side of xlsx_bench: reads the workbook and visits every cell; prints seconds.
//   node xlsx_sheetjs_read.js NODE_MODULES PATH
"use strict";
const XLSX = require(require("path").resolve(process.argv[2], "xlsx"));
const start = process.hrtime.bigint();
const wb = XLSX.readFile(process.argv[3], {dense: true});
let n = 0;
for (const name of wb.SheetNames) {
  const ws = wb.Sheets[name];
  const rows = Array.isArray(ws) ? ws : ws["!data"] || [];  // dense layouts of 0.18 and 0.19+
  for (const row of rows) if (row) for (const c of row) if (c && c.v !== undefined) ++n;
}
console.log(Number(process.hrtime.bigint() - start) / 1e9, n);
