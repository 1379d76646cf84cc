#pragma once

// Debian's Chromium, headless, driven through its DevTools protocol on a pair of pipes: a page is
// opened, clicked and typed into as a user would, and whatever the page reports as an error is
// kept. Nothing reaches the network: the profile is fresh and background traffic is off.
#include <nlohmann/json.hpp>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <poll.h>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

namespace testsupport {

class HeadlessBrowser {
public:
    static constexpr const char* Program = "/usr/bin/chromium";

    // `profile` is an empty folder of the test's own, for the browser's profile and its log.
    explicit HeadlessBrowser(const std::filesystem::path& profile) : log(profile / "browser.log") {
        // The browser keeps a socket in its temporary folder, whose path must be short.
        char shortFolder[] = "/tmp/lmweb-XXXXXX";
        if (::mkdtemp(shortFolder) == nullptr)
            throw std::runtime_error("no temporary folder for the browser");
        temporary = shortFolder;
        std::vector<std::string> environment = {"TMPDIR=" + temporary.string()};
        for (char** variable = environ; *variable != nullptr; ++variable) {
            if (!std::string_view(*variable).starts_with("TMPDIR="))
                environment.emplace_back(*variable);
        }
        int toBrowser[2];
        int fromBrowser[2];
        if (::pipe2(toBrowser, O_CLOEXEC) != 0 || ::pipe2(fromBrowser, O_CLOEXEC) != 0)
            throw std::runtime_error("no pipes for the browser");
        pid = ::fork();
        if (pid == 0)
            RunBrowser(profile, environment, toBrowser[0], fromBrowser[1]);
        ::close(toBrowser[0]);
        ::close(fromBrowser[1]);
        input = toBrowser[1];
        output = fromBrowser[0];
        if (pid < 0)
            throw std::runtime_error("cannot start the browser");
        const std::string target = Call("Target.createTarget", {{"url", "about:blank"}}, false)["targetId"];
        session =
            Call("Target.attachToTarget", {{"targetId", target}, {"flatten", true}}, false)["sessionId"];
        for (const char* domain : {"Page.enable", "Runtime.enable", "Log.enable"})
            Call(domain);
    }

    ~HeadlessBrowser() {
        if (pid > 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
        }
        ::close(input);
        ::close(output);
        std::error_code ignored;
        std::filesystem::remove_all(temporary, ignored);
    }

    HeadlessBrowser(const HeadlessBrowser&) = delete;
    HeadlessBrowser& operator=(const HeadlessBrowser&) = delete;

    // Returns once the page's load event has fired, when its scripts have run. A late load event
    // of the blank page before it does not count.
    void Open(const std::string& url) {
        loaded = false;
        Call("Page.navigate", {{"url", url}});
        for (;;) {
            while (!loaded)
                Note(Next());
            if (Evaluate("location.href") == url)
                return;
            loaded = false;
        }
    }

    // The value of a script expression; a script error throws.
    nlohmann::json Evaluate(const std::string& expression) {
        const nlohmann::json result =
            Call("Runtime.evaluate", {{"expression", expression}, {"returnByValue", true}});
        if (result.contains("exceptionDetails"))
            throw std::runtime_error("script failed: " + result["exceptionDetails"].dump());
        return result["result"].value("value", nlohmann::json());
    }

    // A press and release of the mouse at the middle of the first element that `selector` finds.
    void Click(const std::string& selector) {
        const nlohmann::json middle =
            Evaluate("(() => { const e = document.querySelector(" + nlohmann::json(selector).dump() +
                     "); e.scrollIntoView({block: 'center'});"
                     " const r = e.getBoundingClientRect();"
                     " return [r.x + r.width / 2, r.y + r.height / 2]; })()");
        for (const char* type : {"mousePressed", "mouseReleased"})
            Call("Input.dispatchMouseEvent",
                 {{"type", type}, {"x", middle[0]}, {"y", middle[1]}, {"button", "left"}, {"clickCount", 1}});
    }

    // Text typed into the element that `selector` finds, as a keyboard would enter it.
    void Type(const std::string& selector, const std::string& text) {
        Evaluate("document.querySelector(" + nlohmann::json(selector).dump() + ").focus()");
        Call("Input.insertText", {{"text", text}});
    }

    // A PNG of the page's viewport.
    std::string Screenshot(int width, int height) {
        Call("Emulation.setDeviceMetricsOverride",
             {{"width", width}, {"height", height}, {"deviceScaleFactor", 1}, {"mobile", false}});
        const std::string encoded = Call("Page.captureScreenshot", {{"format", "png"}})["data"];
        return DecodeBase64(encoded);
    }

    // Uncaught exceptions, console errors and failed loads, in the order they came.
    const std::vector<std::string>& Problems() const { return problems; }

private:
    [[noreturn]] static void RunBrowser(const std::filesystem::path& profile,
                                        const std::vector<std::string>& environment, int commands,
                                        int answers) {
        // The protocol pipes must be descriptors 3 and 4; move both out of the way first.
        const int in = ::fcntl(commands, F_DUPFD, 10);
        const int out = ::fcntl(answers, F_DUPFD, 10);
        const int logFile = ::open((profile / "browser.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        if (in < 0 || out < 0 || logFile < 0 || ::dup2(in, 3) < 0 || ::dup2(out, 4) < 0 ||
            ::dup2(logFile, 1) < 0 || ::dup2(logFile, 2) < 0)
            ::_exit(127);
        const std::string profileFlag = "--user-data-dir=" + (profile / "profile").string();
        const char* arguments[] = {Program,
                                   "--headless",
                                   "--no-sandbox",
                                   "--disable-gpu",
                                   "--disable-quic",
                                   "--no-first-run",
                                   "--disable-background-networking",
                                   "--disable-component-update",
                                   "--disable-sync",
                                   "--remote-debugging-pipe",
                                   profileFlag.c_str(),
                                   "about:blank",
                                   nullptr};
        std::vector<const char*> variables;
        for (const std::string& variable : environment)
            variables.push_back(variable.c_str());
        variables.push_back(nullptr);
        ::execve(Program, const_cast<char* const*>(arguments), const_cast<char* const*>(variables.data()));
        ::_exit(127);
    }

    // Sends a command, keeps the events that come meanwhile, and returns the command's result.
    nlohmann::json Call(const std::string& method,
                        const nlohmann::json& parameters = nlohmann::json::object(), bool inPage = true) {
        const int id = ++lastId;
        nlohmann::json command = {{"id", id}, {"method", method}, {"params", parameters}};
        if (inPage)
            command["sessionId"] = session;
        const std::string text = command.dump() + '\0';
        for (std::size_t sent = 0; sent < text.size();) {
            const ssize_t written = ::write(input, text.data() + sent, text.size() - sent);
            if (written < 0 && errno != EINTR)
                throw std::runtime_error(WentAway());
            sent += written > 0 ? static_cast<std::size_t>(written) : 0;
        }
        for (;;) {
            const nlohmann::json message = Next();
            if (message.value("id", 0) != id) {
                Note(message);
                continue;
            }
            if (message.contains("error"))
                throw std::runtime_error(method + " failed: " + message["error"].dump());
            return message["result"];
        }
    }

    // The next message; a browser silent for a minute has hung, and the test stops waiting.
    nlohmann::json Next() {
        const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
        std::size_t end;
        while ((end = buffer.find('\0')) == std::string::npos) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                deadline - std::chrono::steady_clock::now());
            pollfd ready{output, POLLIN, 0};
            if (left.count() <= 0 || ::poll(&ready, 1, static_cast<int>(left.count())) == 0)
                throw std::runtime_error("the browser did not answer");
            char chunk[65536];
            const ssize_t got = ::read(output, chunk, sizeof chunk);
            if (got == 0 || (got < 0 && errno != EINTR))
                throw std::runtime_error(WentAway());
            buffer.append(chunk, got > 0 ? static_cast<std::size_t>(got) : 0);
        }
        const nlohmann::json message = nlohmann::json::parse(buffer.substr(0, end));
        buffer.erase(0, end + 1);
        return message;
    }

    // Why the browser stopped, in its own words: the end of its log.
    std::string WentAway() const {
        std::ifstream file(log);
        const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        return "the browser went away; its log ends:\n" +
               text.substr(text.size() > 2000 ? text.size() - 2000 : 0);
    }

    void Note(const nlohmann::json& event) {
        const std::string method = event.value("method", "");
        const nlohmann::json& parameters = event.contains("params") ? event["params"] : nlohmann::json();
        if (method == "Page.loadEventFired") {
            loaded = true;
        } else if (method == "Runtime.exceptionThrown") {
            problems.push_back("exception: " + parameters["exceptionDetails"].dump());
        } else if (method == "Runtime.consoleAPICalled" &&
                   (parameters["type"] == "error" || parameters["type"] == "assert")) {
            problems.push_back("console: " + parameters["args"].dump());
        } else if (method == "Log.entryAdded" && parameters["entry"]["level"] == "error") {
            problems.push_back("log: " + parameters["entry"].dump());
        }
    }

    static std::string DecodeBase64(const std::string& text) {
        const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        std::string bytes;
        unsigned bits = 0;
        int count = 0;
        for (const char c : text) {
            const std::size_t value = alphabet.find(c);
            if (value == std::string::npos)
                continue;
            bits = (bits << 6) | static_cast<unsigned>(value);
            count += 6;
            if (count >= 8) {
                count -= 8;
                bytes += static_cast<char>((bits >> count) & 0xFF);
            }
        }
        return bytes;
    }

    std::filesystem::path log;
    std::filesystem::path temporary;
    pid_t pid = -1;
    int input = -1;
    int output = -1;
    std::string buffer;
    std::string session;
    int lastId = 0;
    bool loaded = false;
    std::vector<std::string> problems;
};

} // namespace testsupport
