#include "crash_handler.h"

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <ucontext.h>
#include <unistd.h>

char g_application_name[128];
struct sigaction sa_crash;

namespace {

constexpr int FATAL_SIGNALS[] = {SIGSEGV, SIGILL, SIGFPE, SIGBUS};
constexpr size_t VALUE_LENGTH = 50;

using version_word = char[VALUE_LENGTH + 1];

struct build_identity {
    version_word number;
    version_word date;
};

/// The words of the line being read. Only the first two matter; the third collects the rest.
struct version_line {
    version_word words[3];
    int started;    // words begun, 3 for any more
    size_t length;  // of the word that was begun last
    bool in_word;
    bool ended;  // a NUL ends the text of a line early
};

void take_character(version_line *line, char character) {
    if (character == '\0')
        line->ended = true;
    if (line->ended)
        return;
    if (character == ' ') {
        line->in_word = false;
        return;
    }
    if (!line->in_word && line->started < 3) {
        line->started++;
        line->length = 0;
    }
    line->in_word = true;
    if (line->length < VALUE_LENGTH)
        line->words[line->started - 1][line->length++] = character;
}

bool begins_with(const char *text, const char *prefix) {
    return std::strncmp(text, prefix, std::strlen(prefix)) == 0;
}

void take_line(build_identity *build, const version_line &line) {
    if (begins_with(line.words[0], "BUILD_NO:"))
        std::memcpy(build->number, line.words[1], sizeof build->number);
    else if (begins_with(line.words[0], "BUILD_DATE:"))
        std::memcpy(build->date, line.words[1], sizeof build->date);
}

void read_version(int version, build_identity *build) {
    version_line line{};
    char piece[256];
    ssize_t size;
    while ((size = read(version, piece, sizeof piece)) > 0) {
        for (ssize_t at = 0; at < size; ++at) {
            if (piece[at] != '\n') {
                take_character(&line, piece[at]);
                continue;
            }
            take_line(build, line);
            line = {};
        }
    }
    take_line(build, line);
}

/// Nothing can be done about a failed write: the process is about to be killed.
__attribute__((format(printf, 2, 3))) void write_line(int record, const char *format, ...) {
    char text[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    [[maybe_unused]] const ssize_t written = write(record, text, std::strlen(text));
}

void write_build_line(int record) {
    const int version = open("/opt/sensor/version", O_RDONLY | O_CLOEXEC);
    if (version < 0)
        return;
    build_identity build{};
    read_version(version, &build);
    close(version);
    const time_t now = std::time(nullptr);
    tm local{};
    localtime_r(&now, &local);
    write_line(record, "%04d.%02d.%02d %02d:%02d:%02d Build_ver: %s Build_time: %s\n", local.tm_year + 1900,
               local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, build.number, build.date);
}

void write_crash_details(int record, const siginfo_t *info, [[maybe_unused]] const void *context) {
    uintptr_t program_counter = 0;
    uintptr_t return_address = 0;
#if defined(__x86_64__)
    // This processor keeps the return address on the stack, not in a register.
    program_counter = static_cast<uintptr_t>(static_cast<const ucontext_t *>(context)->uc_mcontext.gregs[REG_RIP]);
#elif defined(__mips__)
    program_counter = static_cast<uintptr_t>(static_cast<const ucontext_t *>(context)->uc_mcontext.pc);
    return_address = static_cast<uintptr_t>(static_cast<const ucontext_t *>(context)->uc_mcontext.gregs[31]);
#endif
    write_line(record, "  Crash Details: program counter[pc:%p][ra:%p][addr:%p]\n",
               reinterpret_cast<void *>(program_counter), reinterpret_cast<void *>(return_address), info->si_addr);
}

}  // namespace

void register_crash_handler(const char *name) {
    sa_crash.sa_sigaction = sensord_crash_handler;
    sa_crash.sa_flags = SA_SIGINFO;
    sigemptyset(&sa_crash.sa_mask);
    for (const int signal : FATAL_SIGNALS)
        sigaddset(&sa_crash.sa_mask, signal);
    for (const int signal : FATAL_SIGNALS)
        sigaction(signal, &sa_crash, nullptr);
    std::snprintf(g_application_name, sizeof g_application_name, "%s", name);
    tzset();  // loaded now, the time zone needs no file and no memory in the handler
}

void sensord_crash_handler(int signal, siginfo_t *info, void *context) {
    char path[256];
    std::snprintf(path, sizeof path, "/opt/sensor/stacktrace_%s", g_application_name);
    const int record = open(path, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666);
    if (record >= 0) {
        write_build_line(record);
        write_line(record, "  signal %d from pid %ld thread id %ld \n", signal, static_cast<long>(getpid()),
                   static_cast<long>(gettid()));
        write_crash_details(record, info, context);
        close(record);
    }
    kill(getpid(), SIGKILL);
}
