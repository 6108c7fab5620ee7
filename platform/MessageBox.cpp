#include "platform/MessageBox.h"

#include <cstdio>

#if defined(_WIN32)
#include <windows.h>
#endif

namespace platform {

namespace {
MessageBoxHook g_hook = nullptr;
void* g_context = nullptr;
}  // namespace

int ShowMessageBox(const char* text, const char* caption, unsigned style) {
  if (g_hook) return g_hook(text ? text : "", caption ? caption : "", style, g_context);
#if defined(_WIN32)
  return MessageBoxA(nullptr, text, caption, style);
#else
  std::fprintf(stderr, "%s%s%s\n", caption && *caption ? caption : "",
               caption && *caption ? ": " : "", text ? text : "");
  return kIdOk;
#endif
}

MessageBoxHook SetMessageBoxHook(MessageBoxHook hook, void* context) {
  MessageBoxHook previous = g_hook;
  g_hook = hook;
  g_context = context;
  return previous;
}

}  // namespace platform
