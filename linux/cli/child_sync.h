// A `vorlinden sync` beside this process.
#pragma once

#include <sys/types.h>

namespace vorlinden::cli {

// Runs from construction on, in a process group of its own, and writes to this process' standard error. Ends
// with the object, which waits for that (a second or so), and with this process, however it ends. Made and
// destroyed on the main thread.
class ChildSync {
 public:
    ChildSync();  // throws host::ProgramFailed
    ~ChildSync();
    ChildSync(const ChildSync&) = delete;
    ChildSync& operator=(const ChildSync&) = delete;

 private:
    pid_t process_ = 0;
};

}  // namespace vorlinden::cli
