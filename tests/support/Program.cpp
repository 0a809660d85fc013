// SPDX-License-Identifier: Apache-2.0
#include "support/Program.h"

#include <climits>
#include <cstdio>
#include <memory>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace korvane::test {
namespace {

using File = std::unique_ptr<FILE, int (*)(FILE*)>;

// Test programs are built into tests/, which is next to bin/.
std::string binPath(const std::string& name) {
    char self[PATH_MAX] = "";
    const ssize_t length = readlink("/proc/self/exe", self, sizeof self - 1);
    const std::string path(self, length < 0 ? 0 : length);
    return path.substr(0, path.rfind("/tests/")) + "/bin/" + name;
}

std::string contents(FILE* file) {
    std::string text;
    char part[4096];
    rewind(file);
    while (const size_t size = fread(part, 1, sizeof part, file)) text.append(part, size);
    return text;
}

[[noreturn]] void become(const std::string& path, const std::vector<std::string>& arguments,
                         FILE* out, FILE* err) {
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments)
        argv.push_back(const_cast<char*>(argument.c_str()));
    argv.push_back(nullptr);
    dup2(open("/dev/null", O_RDONLY), STDIN_FILENO);
    dup2(fileno(out), STDOUT_FILENO);
    dup2(fileno(err), STDERR_FILENO);
    execv(path.c_str(), argv.data());
    _exit(127);
}

}  // namespace

ProgramResult runProgram(const std::string& name, const std::vector<std::string>& arguments) {
    const File out(tmpfile(), fclose);
    const File err(tmpfile(), fclose);
    const std::string path = binPath(name);
    const pid_t child = fork();
    if (child == 0) become(path, arguments, out.get(), err.get());
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, contents(out.get()), contents(err.get())};
}

}  // namespace korvane::test
