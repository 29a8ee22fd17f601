// Each system call stops its thread twice. At the entry the arguments are read, with the bytes to
// be written, for another thread may change the buffer once the call has returned; the operation is
// appended to the log at the exit, when its result is known. A thread goes on only after its stop
// was handled, so a write logged before a sync's begin had ended before that sync began: the log
// never promises more than the system does.
#include "write_tracer.h"

#include <fcntl.h>
#include <linux/falloc.h>
#include <sys/mman.h>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>

namespace zeva_test {
namespace fs = std::filesystem;
namespace {

constexpr int kRefusedStatus = 77;
constexpr int kSyscallStop = SIGTRAP | 0x80;

using FileId = std::pair<dev_t, ino_t>;
using Arguments = std::array<uint64_t, 6>;

// A call under way, as it was entered.
struct Call {
  uint64_t number = 0;
  Arguments arguments{};
  std::string path;
  Operation operation;
  bool watched = false;
  bool existed = false;
  int64_t size = 0;
};

std::string content_of(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

class Tracer {
 public:
  explicit Tracer(const fs::path& watched_folder) : folder(fs::canonical(watched_folder)) {
    for (const auto& entry : fs::directory_iterator(folder)) {
      const int32_t file = new_file(entry.path(), content_of(entry.path()));
      log.names[entry.path().filename()] = file;
    }
  }

  WriteLog run(const std::vector<std::string>& command) {
    const pid_t program = start(command);
    int program_status = 0;
    int status = 0;
    for (pid_t thread; (thread = waitpid(-1, &status, __WALL | __WNOTHREAD)) > 0;) {
      if (WIFSTOPPED(status)) {
        go_on(thread, status);
        continue;
      }
      if (thread == program) program_status = status;
      known.erase(thread);  // the system gives the numbers of ended threads again
    }
    if (!fault.empty()) throw std::runtime_error(fault);
    if (program_status != 0) throw std::runtime_error(command.back() + ": the recording failed");
    return std::move(log);
  }

 private:
  static pid_t start(const std::vector<std::string>& command) {
    std::vector<char*> words;
    for (const std::string& word : command) words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    const pid_t program = fork();
    if (program == 0) {
      if (ptrace(PTRACE_TRACEME, 0, 0, 0) != 0) _exit(kRefusedStatus);
      raise(SIGSTOP);
      execv(words[0], words.data());
      _exit(1);
    }
    int status = 0;
    waitpid(program, &status, __WALL);
    if (program < 0 || !WIFSTOPPED(status)) throw TracingRefused("no right to trace a process");
    ptrace(PTRACE_SETOPTIONS, program, 0,
           PTRACE_O_TRACESYSGOOD | PTRACE_O_TRACECLONE | PTRACE_O_TRACEFORK | PTRACE_O_TRACEVFORK |
               PTRACE_O_TRACEEXEC | PTRACE_O_EXITKILL);
    ptrace(PTRACE_SYSCALL, program, 0, 0);
    return program;
  }

  // Hands signals on, but not the stops that tracing itself makes.
  void go_on(pid_t thread, int status) {
    int signal = WSTOPSIG(status);
    const bool begins = known.insert(thread).second && signal == SIGSTOP;
    if (signal == kSyscallStop) handle_call(thread);
    if (begins || signal == kSyscallStop || status >> 16 != 0) signal = 0;
    ptrace(PTRACE_SYSCALL, thread, 0, signal);
  }

  void handle_call(pid_t thread) {
    __ptrace_syscall_info info{};
    ptrace(PTRACE_GET_SYSCALL_INFO, thread, sizeof info, &info);
    if (info.op == PTRACE_SYSCALL_INFO_ENTRY) {
      Call call;
      call.number = info.entry.nr;
      std::copy(std::begin(info.entry.args), std::end(info.entry.args), call.arguments.begin());
      enter(thread, call);
      calls[thread] = std::move(call);
    } else if (info.op == PTRACE_SYSCALL_INFO_EXIT) {
      leave(thread, calls[thread], info.exit.rval);
      calls.erase(thread);
    }
  }

  // ---- entries

  void enter(pid_t thread, Call& call) {
    const Arguments& a = call.arguments;
    switch (call.number) {
      case SYS_access:
      case SYS_creat:
      case SYS_open:
      case SYS_rename:
      case SYS_truncate:
      case SYS_unlink:
        return enter_path(thread, call, AT_FDCWD, a[0]);
      case SYS_faccessat:
      case SYS_faccessat2:
      case SYS_openat:
      case SYS_renameat:
      case SYS_renameat2:
      case SYS_unlinkat:
        return enter_path(thread, call, static_cast<int>(a[0]), a[1]);
      case SYS_write:
        return enter_write(thread, call, bytes, -1);
      case SYS_pwrite64:
        return enter_write(thread, call, bytes, static_cast<int64_t>(a[3]));
      case SYS_writev:
        return enter_write(thread, call, pieces, -1);
      case SYS_pwritev:
      case SYS_pwritev2:
        return enter_write(thread, call, pieces, static_cast<int64_t>(a[3]));
      case SYS_ftruncate:
      case SYS_fallocate:
        return enter_file(thread, call, Operation::kResize);
      case SYS_fsync:
      case SYS_fdatasync:
        return enter_sync(thread, call);
      case SYS_mmap:
        if ((a[2] & PROT_WRITE) == 0 || (a[3] & MAP_SHARED) == 0) return;
        return refuse(thread, static_cast<int>(a[4]), "a mapping");
      case SYS_sendfile:
        return refuse(thread, static_cast<int>(a[0]), "sendfile");
      case SYS_splice:
      case SYS_copy_file_range:
        return refuse(thread, static_cast<int>(a[2]), "a copy");
      case SYS_link:
      case SYS_linkat:
      case SYS_io_uring_setup:
        fault = "the program made a call that cannot be logged";
        return;
      default:
        return;
    }
  }

  void enter_path(pid_t thread, Call& call, int from, uint64_t address) {
    const std::string text = path_text(thread, address);
    if (text.rfind(kMarkFolder, 0) == 0) {
      log.operations.push_back(
          {Operation::kMark, Operation::kNoFile, 0, fs::path(text).filename()});
      return;
    }
    call.path = absolute(thread, from, text);
    call.watched = in_folder(call.path);
    struct stat facts {};
    call.existed = stat(call.path.c_str(), &facts) == 0;
    call.size = facts.st_size;
  }

  void enter_file(pid_t thread, Call& call, Operation::Kind kind) {
    call.operation.kind = kind;
    call.operation.file = file_of(thread, static_cast<int>(call.arguments[0]), &call.size);
    call.watched = call.operation.file != Operation::kNoFile;
  }

  // A negative position: the descriptor's own.
  void enter_write(pid_t thread, Call& call, std::string (*read)(pid_t, uint64_t, uint64_t),
                   int64_t position) {
    enter_file(thread, call, Operation::kWrite);
    if (!call.watched) return;
    std::ifstream facts("/proc/" + std::to_string(thread) + "/fdinfo/" +
                        std::to_string(static_cast<int>(call.arguments[0])));
    std::string word;
    int64_t own = 0;
    unsigned flags = 0;
    facts >> word >> own >> word >> std::oct >> flags;
    if (!facts) fault = "the position of a write is not known";
    call.operation.value = position >= 0 ? position : own;
    if ((flags & O_APPEND) != 0) call.operation.value = call.size;
    call.operation.text = read(thread, call.arguments[1], call.arguments[2]);
  }

  void enter_sync(pid_t thread, Call& call) {
    enter_file(thread, call, Operation::kSyncBegin);
    if (!call.watched) {
      const fs::path path = descriptor(thread, static_cast<int>(call.arguments[0]));
      std::error_code error;
      call.watched = fs::equivalent(path, folder, error);
      call.operation.kind = Operation::kFolderSyncBegin;
    }
    if (!call.watched) return;
    call.operation.value = ++syncs;
    log.operations.push_back(call.operation);
  }

  void refuse(pid_t thread, int number, const char* what) {
    if (number >= 0 && file_of(thread, number, nullptr) != Operation::kNoFile) {
      fault = std::string("a file was changed by ") + what + ", which cannot be logged";
    }
  }

  // ---- exits

  void leave(pid_t thread, Call& call, int64_t result) {
    if (!call.watched || result < 0) return;
    switch (call.number) {
      case SYS_open:
        return leave_open(thread, call, call.arguments[1], result);
      case SYS_creat:
        return leave_open(thread, call, O_CREAT | O_TRUNC, result);
      case SYS_openat:
        return leave_open(thread, call, call.arguments[2], result);
      case SYS_unlink:
      case SYS_unlinkat:
        return rename_to(call.path, Operation::kNoFile);
      case SYS_rename:
        return leave_rename(thread, call, AT_FDCWD, call.arguments[1]);
      case SYS_renameat:
      case SYS_renameat2:
        return leave_rename(thread, call, static_cast<int>(call.arguments[2]), call.arguments[3]);
      case SYS_access:
      case SYS_faccessat:
      case SYS_faccessat2:
        return;  // changes nothing
      case SYS_ftruncate:
        call.operation.value = static_cast<int64_t>(call.arguments[1]);
        break;
      case SYS_truncate:
        call.operation = {Operation::kResize, log.last_file(fs::path(call.path).filename()),
                          static_cast<int64_t>(call.arguments[1]), ""};
        break;
      case SYS_fallocate:
        return leave_fallocate(call);
      case SYS_fsync:
      case SYS_fdatasync:
        call.operation.kind = call.operation.kind == Operation::kSyncBegin
                                  ? Operation::kSyncEnd
                                  : Operation::kFolderSyncEnd;
        break;
      default:
        call.operation.text.resize(static_cast<size_t>(result));  // what was really written
    }
    log.operations.push_back(std::move(call.operation));
  }

  void leave_open(pid_t thread, const Call& call, uint64_t flags, int64_t descriptor_number) {
    const fs::path path = descriptor(thread, static_cast<int>(descriptor_number));
    if (!call.existed) return rename_to(call.path, new_file(path, ""));
    const bool emptied = (flags & O_TRUNC) != 0 && call.size > 0;
    const int32_t file = file_of(thread, static_cast<int>(descriptor_number), nullptr);
    if (emptied && file != Operation::kNoFile) {
      log.operations.push_back({Operation::kResize, file, 0, ""});
    }
  }

  void leave_rename(pid_t thread, const Call& call, int to, uint64_t address) {
    rename_to(absolute(thread, to, path_text(thread, address)),
              log.last_file(fs::path(call.path).filename()));
    rename_to(call.path, Operation::kNoFile);
  }

  // Space that is only reserved changes nothing of what the file holds.
  void leave_fallocate(Call& call) {
    const uint64_t mode = call.arguments[1];
    if (mode == FALLOC_FL_KEEP_SIZE) return;
    if (mode != 0) fault = "a file was changed by fallocate in a way that cannot be logged";
    const auto end = static_cast<int64_t>(call.arguments[2] + call.arguments[3]);
    if (end <= call.size) return;
    call.operation.value = end;
    log.operations.push_back(std::move(call.operation));
  }

  void rename_to(const fs::path& path, int32_t file) {
    if (!in_folder(path)) return;
    log.operations.push_back({Operation::kName, file, 0, path.filename()});
  }

  // ---- what the program's numbers and addresses stand for

  bool in_folder(const fs::path& path) const { return path.parent_path() == folder; }

  static std::string descriptor(pid_t thread, int number) {
    return "/proc/" + std::to_string(thread) + "/fd/" + std::to_string(number);
  }

  int32_t file_of(pid_t thread, int number, int64_t* size) const {
    struct stat facts {};
    if (stat(descriptor(thread, number).c_str(), &facts) != 0) return Operation::kNoFile;
    if (size != nullptr) *size = facts.st_size;
    const auto found = files.find({facts.st_dev, facts.st_ino});
    return found != files.end() ? found->second : Operation::kNoFile;
  }

  int32_t new_file(const fs::path& path, std::string content) {
    struct stat facts {};
    stat(path.c_str(), &facts);
    const auto file = static_cast<int32_t>(log.before.size());
    log.before.push_back(std::move(content));
    files[{facts.st_dev, facts.st_ino}] = file;  // the system gives numbers of deleted files again
    return file;
  }

  static std::string path_text(pid_t thread, uint64_t address) {
    std::string text;
    for (char letter = 1; text.size() < 4096; text += letter) {
      const iovec here{&letter, 1}, there{reinterpret_cast<void*>(address + text.size()), 1};
      if (process_vm_readv(thread, &here, 1, &there, 1, 0) != 1 || letter == '\0') break;
    }
    return text;
  }

  static std::string absolute(pid_t thread, int from, const std::string& text) {
    const fs::path base =
        from == AT_FDCWD ? "/proc/" + std::to_string(thread) + "/cwd" : descriptor(thread, from);
    std::error_code error;
    fs::path path = text;
    if (path.is_relative()) path = fs::read_symlink(base, error) / path;
    path = path.lexically_normal();
    const fs::path parent = fs::canonical(path.parent_path(), error);
    return error ? path : parent / path.filename();
  }

  static std::string bytes(pid_t thread, uint64_t address, uint64_t count) {
    std::string text(count, '\0');
    const iovec here{text.data(), count}, there{reinterpret_cast<void*>(address), count};
    const ssize_t got = process_vm_readv(thread, &here, 1, &there, 1, 0);
    text.resize(got > 0 ? static_cast<size_t>(got) : 0);
    return text;
  }

  static std::string pieces(pid_t thread, uint64_t address, uint64_t count) {
    const std::string table = bytes(thread, address, count * sizeof(iovec));
    std::string text;
    for (size_t i = 0; i + sizeof(iovec) <= table.size(); i += sizeof(iovec)) {
      iovec piece;
      memcpy(&piece, &table[i], sizeof piece);
      text += bytes(thread, reinterpret_cast<uint64_t>(piece.iov_base), piece.iov_len);
    }
    return text;
  }

  const fs::path folder;
  WriteLog log;
  std::map<FileId, int32_t> files;
  std::map<pid_t, Call> calls;
  std::set<pid_t> known;
  int64_t syncs = 0;
  std::string fault;
};

}  // namespace

WriteLog trace_writes(const std::vector<std::string>& command, const fs::path& folder) {
  return Tracer(folder).run(command);
}

}  // namespace zeva_test
