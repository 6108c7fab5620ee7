// The ODBC scalar functions ({fn UCASE(x)} and the rest, callable without the escape too)
// and the "xlsdate" collation, registered on the SQL engine's SQLite connection.
//
// Strings: UCASE LCASE LEFT RIGHT SUBSTRING LOCATE CONCAT SPACE REPEAT ASCII
// Numbers: MOD FLOOR CEILING SQRT POWER EXP LOG LOG10 PI SIGN TRUNCATE
// Dates (over "YYYY-MM-DD HH:MM:SS" text): CURDATE CURTIME NOW YEAR MONTH DAYOFMONTH
//   DAYOFWEEK DAYOFYEAR QUARTER HOUR MINUTE SECOND
// System: DATABASE USER (empty text)
// SQLite's own LENGTH, LTRIM, RTRIM, ABS, ROUND, IFNULL, CHAR answer the rest.
//
// xlsdate orders date texts as dates: "YYYY-MM-DD" is "YYYY-MM-DD 00:00:00"; other text
// compares byte by byte. It is a total order, as SQLite requires.
#pragma once

#include <sqlite3.h>

namespace xlsodbc {

int RegisterSqlFunctions(sqlite3* db);

}  // namespace xlsodbc
