// SPDX-License-Identifier: ISC
#include "program.h"
#include "tests/support/build_paths.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <random>
#include <regex>
#include <sndfile.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace quillhost_test {

namespace fs = std::filesystem;

Program::Program(const Words& arguments, const Words& environment)
{
    const auto base = (fs::temp_directory_path() / "quillhost-XXXXXX").string();
    const auto fresh = [&base] {
        std::string name = base;
        const int fd = mkostemp(name.data(), O_CLOEXEC);
        close(fd);
        return name;
    };
    outFile_ = fresh();
    errFile_ = fresh();
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, ends[0], 0);
    posix_spawn_file_actions_addopen(&actions, 1, outFile_.c_str(), O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 2, errFile_.c_str(), O_WRONLY, 0);

    Words all = {quillworks::paths::quillhost};
    all.insert(all.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv, envp;
    for (auto& word : all) argv.push_back(word.data());
    argv.push_back(nullptr);
    Words extra = environment;
    extra.push_back("QUILLWORKS_MODULE=" + quillworks::paths::module);
    for (auto& entry : extra) envp.push_back(entry.data());
    for (char** entry = environ; *entry; ++entry) envp.push_back(*entry);
    envp.push_back(nullptr);
    const int failed =
        posix_spawn(&pid_, all[0].c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    close(ends[0]);
    in_ = ends[1];
    if (failed) throw std::runtime_error("the program does not start");
}

Program::~Program()
{
    if (in_ >= 0) close(in_);
    if (pid_ > 0) {
        kill(pid_, SIGKILL);
        waitpid(pid_, nullptr, 0);
    }
    std::error_code error;
    fs::remove(outFile_, error);
    fs::remove(errFile_, error);
}

void Program::send(const std::string& data)
{
    std::signal(SIGPIPE, SIG_IGN);  // the program may refuse before it has read everything
    for (std::size_t at = 0; at < data.size();) {
        const auto n = write(in_, data.data() + at, data.size() - at);
        if (n <= 0) return;
        at += static_cast<std::size_t>(n);
    }
}

void Program::signal(int number)
{
    kill(pid_, number);
}

int Program::unnamedFiles() const
{
    int count = 0;
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc/" + std::to_string(pid_) + "/fd", error))
        count += fs::read_symlink(entry.path(), error).string().ends_with(" (deleted)");
    return count;
}

Result Program::wait()
{
    close(std::exchange(in_, -1));
    int status = 0;
    waitpid(std::exchange(pid_, -1), &status, 0);
    std::string err = readBytes(errFile_);
#ifdef __SANITIZE_ADDRESS__
    // So that a sanitizer can report there, the program leaves standard error to libraries then:
    // what the reader of MP3 says of its own accord is not the program's.
    err = std::regex_replace(err, std::regex("\\n?(Warning: Xing|\\[src/libmpg123)[^\\n]*\\n"), "");
#endif
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, readBytes(outFile_), err};
}

Result run(const Words& arguments, const std::string& input, const Words& environment)
{
    Program program(arguments, environment);
    program.send(input);
    return program.wait();
}

Sound noise(int channels, std::size_t frames, double amplitude)
{
    Sound s{channels, 48000, 0, {}};
    std::mt19937 random(std::uint32_t(channels) * 7919u);
    std::uniform_real_distribution<double> value(-amplitude, amplitude);
    for (std::size_t i = 0; i < frames * std::size_t(channels); ++i)
        s.samples.push_back(value(random));
    return s;
}

void writeSound(const std::string& path, const Sound& sound, int format)
{
    SF_INFO info = {};
    info.channels = sound.channels;
    info.samplerate = sound.rate;
    info.format = format;
    SNDFILE* file = sf_open(path.c_str(), SFM_WRITE, &info);
    ASSERT_TRUE(file) << sf_strerror(nullptr);
    sf_command(file, SFC_SET_ADD_PEAK_CHUNK, nullptr, SF_FALSE);
    sf_writef_double(file, sound.samples.data(), sf_count_t(sound.frames()));
    sf_close(file);
}

Sound readSound(const std::string& path)
{
    SF_INFO info = {};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (!file) {
        ADD_FAILURE() << path << ": " << sf_strerror(nullptr);
        return {};
    }
    Sound s{info.channels, info.samplerate, info.format, {}};
    s.samples.resize(std::size_t(info.frames * info.channels));
    sf_readf_double(file, s.samples.data(), info.frames);
    sf_close(file);
    return s;
}

std::string readBytes(const std::string& path)
{
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeBytes(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

std::uint32_t maskOf(const std::string& path)
{
    const auto bytes = readBytes(path);
    const auto fmt = bytes.find("fmt ");
    std::uint32_t mask = 0;
    if (bytes.compare(fmt + 8, 2, "\xFE\xFF") == 0) std::memcpy(&mask, &bytes[fmt + 28], 4);
    return mask;
}

InFolder::InFolder() : before_(fs::current_path())
{
    std::string name = (fs::temp_directory_path() / "quillhost-test-XXXXXX").string();
    if (!mkdtemp(name.data())) throw std::runtime_error("no folder");
    folder_ = name;
    fs::current_path(folder_);
}

InFolder::~InFolder()
{
    fs::current_path(before_);
    fs::remove_all(folder_);
}

Words InFolder::files() const
{
    Words names;
    for (const auto& entry : fs::directory_iterator(folder_))
        names.push_back(entry.path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

void expectFailure(const Result& result, int code, const std::string& pattern)
{
    EXPECT_EQ(result.code, code);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
    EXPECT_TRUE(std::regex_search(result.err, std::regex("^quillhost: .*" + pattern)))
        << result.err << "does not match " << pattern;
}

void expectSilence(const Result& result)
{
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, "");
}

}  // namespace quillhost_test
