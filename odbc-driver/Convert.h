// Conversion of a value's text (cells always read as text) into the C type an application
// asks for through SQLGetData or SQLBindCol, and of bound parameters into Values.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include <string>
#include <string_view>
#include <vector>

#include "odbc-driver/Error.h"
#include "odbc-driver/Sql.h"

namespace xlsodbc {

struct ConvertResult {
  SQLRETURN ret = SQL_SUCCESS;
  State state = State::kGeneralError;  // with SQL_ERROR or SQL_SUCCESS_WITH_INFO
  std::string message;
};

// Writes text (nullptr for NULL) as cType into buffer. For character and binary types
// *offset counts the bytes of the converted value already delivered (pieces across calls)
// and SQL_NO_DATA says everything was; other types ignore it.
ConvertResult ConvertText(const std::string* text, SQLSMALLINT cType, SQLPOINTER buffer,
                          SQLLEN bufferLength, SQLLEN* indicator, std::size_t* offset);
// The same over text held elsewhere (a cell, a number formatted on the stack).
ConvertResult ConvertView(const std::string_view* text, SQLSMALLINT cType, SQLPOINTER buffer,
                          SQLLEN bufferLength, SQLLEN* indicator, std::size_t* offset);

// An SQL type the driver reports for a column or takes in CREATE TABLE, with what
// SQLGetTypeInfo, SQLColumns and SQLColAttribute say of it. A column of any type reads as
// text through SQL_C_CHAR; the types only tell an application what the values are.
struct SqlTypeInfo {
  const char* name;
  SQLSMALLINT type;     // concise type (SQL_TYPE_TIMESTAMP, not SQL_DATETIME)
  long columnSize;      // characters, digits, or a date's text length
  const char* literal;  // prefix and suffix of a literal; nullptr for numbers
  const char* createParams;
  bool caseSensitive;
  bool isNumber;
  SQLSMALLINT decimalDigits;  // the scale a column of it reports
  SQLSMALLINT verboseType;    // SQL_DATETIME for dates, else type
  SQLSMALLINT datetimeSub;    // SQL_CODE_DATE/TIME/TIMESTAMP, else 0
  long octetLength;           // bytes of its default C type
  long displaySize;
  SQLSMALLINT defaultCType;  // what SQL_C_DEFAULT delivers
};

// Every type, in the order SQLGetTypeInfo lists them (by type number).
const std::vector<SqlTypeInfo>& SqlTypes();
// The entry for a type; VARCHAR's for one the driver does not have.
const SqlTypeInfo& SqlTypeOf(SQLSMALLINT type);

// UTF-8 to UTF-16 code units (SQLWCHAR is 16 bits with unixODBC) and back; malformed bytes
// become U+FFFD.
std::u16string Utf8ToUtf16(std::string_view s);
std::string Utf16ToUtf8(const SQLWCHAR* s, std::size_t units);

// The size of a value of a fixed-size C type (numbers, dates); 0 for text and binary, whose
// size is the buffer's.
std::size_t FixedSizeOf(SQLSMALLINT cType);

// A bound parameter's current value. buffer and indicator may sit at any alignment; a
// NUL-terminated value is read no further than bufferLength bytes when that is positive.
// Data at execution answers HYC00, a negative length other than SQL_NTS/SQL_NULL_DATA HY090.
ConvertResult ParameterValue(SQLSMALLINT cType, SQLPOINTER buffer, SQLLEN bufferLength,
                             SQLLEN* indicator, Value* out);

}  // namespace xlsodbc
