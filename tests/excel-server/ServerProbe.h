// Reads the workbook the in-process server last added, for tests in this process.
#pragma once

#include <dlfcn.h>

#include <string>

#include "xls/Workbook.h"

inline bool LastServerWorkbook(xls::Workbook* out, std::string* name = nullptr) {
  // The seam loads the same file, so this finds the instance already in the process.
  static void* handle = dlopen(EXCEL_SERVER_PATH, RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) return false;
  using Probe = bool (*)(xls::Workbook*, std::string*);
  auto probe = reinterpret_cast<Probe>(dlsym(handle, "ExcelServerLastWorkbook"));
  std::string ignored;
  return probe != nullptr && probe(out, name ? name : &ignored);
}
