#include "excel-server/HandOff.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#if EXCEL_SERVER_HAVE_WRITER
#include "xls/Xls.h"
#endif

extern char** environ;

namespace excelserver {

namespace {

int g_bookNumber = 0;
std::weak_ptr<Book> g_lastBook;
// Instances the user controls live until the process ends, as a running Excel does.
std::vector<std::shared_ptr<Instance>>& UserInstances() {
  static auto* kept = new std::vector<std::shared_ptr<Instance>>();
  return *kept;
}

std::string Save(const Book& book, const std::string& path) {
#if EXCEL_SERVER_HAVE_WRITER
  xls::Status status = xls::WriteWorkbook(path, book.workbook);
  if (!status.ok()) return "Cannot save '" + path + "': " + status.ToString();
  return std::string();
#else
  (void)book;
  return "Cannot save '" + path + "': this build has no workbook writer";
#endif
}

std::string HandOffFolder() {
  for (const char* var : {"XDG_RUNTIME_DIR", "TMPDIR"}) {
    const char* v = std::getenv(var);
    struct stat st;
    if (v != nullptr && *v && stat(v, &st) == 0 && S_ISDIR(st.st_mode)) return v;
  }
  return "/tmp";
}

// xdg-open may run the application in the foreground: start it from a short-lived child
// so the caller never waits for the user to close the workbook.
void Open(const std::string& path) {
  const char* argv[] = {"sh", "-c", "xdg-open \"$0\" >/dev/null 2>&1 </dev/null &", path.c_str(),
                        nullptr};
  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  posix_spawnattr_setflags(&attr, POSIX_SPAWN_SETSID);
  pid_t pid;
  if (posix_spawnp(&pid, "sh", nullptr, &attr, const_cast<char* const*>(argv), environ) == 0) {
    int status;
    waitpid(pid, &status, 0);  // the shell returns at once; xdg-open runs on its own
  }
  posix_spawnattr_destroy(&attr);
}

}  // namespace

int NextBookNumber() { return ++g_bookNumber; }

void NoteNewBook(const std::shared_ptr<Book>& book) { g_lastBook = book; }

void KeepForUser(const std::shared_ptr<Instance>& app) {
  for (const auto& kept : UserInstances())
    if (kept == app) return;
  UserInstances().push_back(app);
}

std::string HandOff(const Instance& app) {
  if (app.books.empty()) return std::string();
  if (const char* target = std::getenv("SPREADSHEET_EXCEL_HANDOFF"); target != nullptr) {
    if (*target == 0) return std::string();  // set but empty: keep it in memory only
    return Save(*app.books.back(), target);
  }
  std::string folder = HandOffFolder();
  bool display = (std::getenv("DISPLAY") && *std::getenv("DISPLAY")) ||
                 (std::getenv("WAYLAND_DISPLAY") && *std::getenv("WAYLAND_DISPLAY"));
  for (const auto& book : app.books) {
    // BookN.xls, or BookN-2.xls, ... when a file of that name is already there.
    std::string path;
    for (int attempt = 1; attempt < 1000; ++attempt) {
      path =
          folder + "/" + book->name + (attempt > 1 ? "-" + std::to_string(attempt) : "") + ".xls";
      // The save keeps this placeholder's mode: 0666 less the umask, as for any new file.
      int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0666);
      if (fd >= 0) {
        close(fd);
        break;
      }
      path.clear();
    }
    if (path.empty()) return "Cannot find a free file name in " + folder;
    std::string error = Save(*book, path);
    if (!error.empty()) {
      unlink(path.c_str());
      return error;
    }
    if (display) Open(path);
  }
  return std::string();
}

}  // namespace excelserver

bool ExcelServerLastWorkbook(xls::Workbook* out, std::string* name) {
  std::shared_ptr<excelserver::Book> book = excelserver::g_lastBook.lock();
  if (!book) return false;
  *out = book->workbook;
  *name = book->name;
  return true;
}

extern "C" __attribute__((visibility("default"))) HRESULT AutomationServerCreate(const char* progId,
                                                                                 IDispatch** out) {
  if (out == nullptr) return E_INVALIDARG;
  *out = nullptr;
  if (progId == nullptr || std::strcmp(progId, "Excel.Application") != 0) return CO_E_CLASSSTRING;
  try {
    *out = excelserver::NewApplication();
  } catch (const std::bad_alloc&) {
    return E_OUTOFMEMORY;
  }
  return S_OK;
}
