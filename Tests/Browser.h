/// \file Browser.h
/// A page in Chromium, without a window, led by its driver's protocol (W3C WebDriver).
#pragma once

#include "Shell.h"

#include <nlohmann/json.hpp>

#include <chrono>
#include <thread>

class Browser {
public:
    using Json = nlohmann::json;

    static bool IsThere() { return Shell("command -v chromedriver chromium curl").status == 0; }

    Browser(int width, int height, std::vector<std::string> more = {}) {
        const std::string log = folder / "log", mark = "successfully on port ";
        driver = std::stoi(Output("chromedriver --port=0 > ", log, " 2>&1 & echo $!"));
        std::string said;
        Until([&] { return (said = Read(log)).find(mark) != std::string::npos; });
        port = std::stoi(said.substr(said.find(mark) + mark.size()));
        for (const char *argument : {"--headless=new", "--no-sandbox", "--disable-gpu"})
            more.emplace_back(argument);
        more.push_back(Text("--window-size=", width, ",", height));
        const Json options = {{"args", more}};
        const Json started = Call(
            "POST", "", {{"capabilities", {{"alwaysMatch", {{"goog:chromeOptions", options}}}}}});
        session = Text("/", started.at("sessionId").get<std::string>());
    }

    ~Browser() {
        Shell(Text("curl -s -m 60 -X DELETE http://127.0.0.1:", port, "/session", session,
                   "; kill ", driver));
    }
    Browser(const Browser &) = delete;
    Browser &operator=(const Browser &) = delete;

    void Open(const std::string &file) { Call("POST", "/url", {{"url", "file://" + file}}); }
    /// The value of a script's `return`, with these `arguments`.
    Json Run(const std::string &script, const Json &arguments = Json::array()) {
        return Call("POST", "/execute/sync", {{"script", script}, {"args", arguments}});
    }
    /// Whether an expression becomes true within some seconds.
    bool Becomes(const std::string &expression) {
        return Until([&] { return Run("return Boolean(" + expression + ")") == true; });
    }
    /// A real click, or a pointer that only rests there.
    void Click(const std::string &selector) {
        const Json element = Find(selector);
        Run("arguments[0].scrollIntoView({block: 'center'})", Json::array({element}));
        Call("POST", "/element/" + element.begin()->get<std::string>() + "/click", Json::object());
    }
    void Hover(const std::string &selector) {
        const Json move = {{"type", "pointerMove"},
                           {"duration", 0},
                           {"x", 0},
                           {"y", 0},
                           {"origin", Find(selector)}};
        Act({{"type", "pointer"}, {"id", "mouse"}, {"actions", {move}}});
    }
    /// Key presses, one after the other; those that are held go first and up last.
    void Press(const std::vector<std::string> &keys) {
        Json actions;
        for (const std::string &key : keys)
            actions.push_back({{"type", "keyDown"}, {"value", key}});
        for (auto key = keys.rbegin(); key != keys.rend(); ++key)
            actions.push_back({{"type", "keyUp"}, {"value", *key}});
        Act({{"type", "key"}, {"id", "keyboard"}, {"actions", actions}});
    }

private:
    template<class Condition>
    static bool Until(Condition condition) {
        constexpr std::chrono::milliseconds kPause(30);
        for (int tries = 0; tries < 500; ++tries, std::this_thread::sleep_for(kPause))
            if (condition())
                return true;
        return false;
    }
    Json Find(const std::string &selector) {
        return Call("POST", "/element", {{"using", "css selector"}, {"value", selector}});
    }
    void Act(const Json &source) { Call("POST", "/actions", {{"actions", {source}}}); }
    Json Call(const std::string &method, const std::string &path, const Json &body) {
        Write(folder / "body", body.dump());
        const Outcome answer =
            Shell(Text("curl -s -m 60 -X ", method, " -H Content-Type:application/json --data @",
                       folder / "body", " http://127.0.0.1:", port, "/session", session, path));
        const Json value = Json::parse(answer.output, nullptr, false);
        if (value.is_discarded() || !value.contains("value") ||
            (value["value"].is_object() && value["value"].contains("error"))) {
            ADD_FAILURE() << method << " " << path << " " << body << "\n" << answer.output;
            throw std::runtime_error("the browser does not do as it is told");
        }
        return value["value"];
    }

    const Folder folder;
    int driver = 0, port = 0;
    std::string session;
};
