// Conversion of a value's text (cells always read as text) into the C type an application
// asks for through SQLGetData or SQLBindCol, and of bound parameters into Values.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include <string>
#include <string_view>

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
