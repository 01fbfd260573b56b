// bedrock-report: shows the report of a fatal error and tells the answer, to the library that starts it (see
// Bedrock/platform/ReportDialog.h) or to a user who looks at a report in a file.

#include "Desktop.h"
#include "MessageWindow.h"
#include "ReportWindow.h"

#include <Bedrock/Version.h>

#include <CLI/CLI.hpp>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <unistd.h>

namespace
{

constexpr int NotShown = 2; // exit code beside the answers 0 and 1
constexpr std::size_t LongestReport = 4 << 20;

[[noreturn]] void Fail(const std::string& text)
{
    std::fprintf(stderr, "bedrock-report: %s\n", text.c_str());
    std::exit(NotShown);
}

std::string ReadReport(const std::string& name)
{
    const bool isInput = name.empty() || name == "-";
    const std::string shown = isInput ? "standard input" : name;
    if (isInput && isatty(STDIN_FILENO))
        Fail("no report: name a file, or pipe one in (see --help)");
    const int file = isInput ? STDIN_FILENO : open(name.c_str(), O_RDONLY | O_CLOEXEC);
    if (file < 0)
        Fail(shown + ": cannot open: " + std::strerror(errno));
    std::string text;
    char part[65536];
    for (;;)
    {
        const ssize_t count = read(file, part, sizeof(part));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            Fail(shown + ": cannot read: " + std::strerror(errno));
        if (count == 0)
            break;
        text.append(part, static_cast<std::size_t>(count));
        if (text.size() > LongestReport)
            Fail(shown + ": longer than 4 MiB, which is no report");
    }
    return text;
}

} // namespace

int main(int argc, char** argv)
{
    std::string file, error, message, question;
    int answerFd = -1;
    CLI::App app("Shows the report of a fatal error, or a message, and waits for the answer.\n\n"
                 "Libraries built with Bedrock start it by themselves. The text comes from FILE or standard input.",
                 "bedrock-report");
    app.set_version_flag("--version", "bedrock-report " ZEM_VERSION);
    app.add_option("FILE", file, "Text to show; standard input if there is none");
    app.add_option("--answer-fd", answerFd, "File descriptor that gets the answer too, as the byte '0' or '1'")
        ->check(CLI::Range(1, 1 << 20))
        ->type_name("N");
    auto* kinds = app.add_option_group("Messages", "A message in place of a report");
    auto* errorOption = kinds->add_option("--error", error, "With the icon of an error")->type_name("TITLE");
    auto* messageOption = kinds->add_option("--message", message, "As it is")->type_name("TITLE");
    auto* questionOption = kinds->add_option("--confirm", question, "With the buttons Yes and No")->type_name("TITLE");
    kinds->require_option(0, 1);
    app.footer("Exit codes: 0 Continue, OK or Yes; 1 Terminate or No, also by Escape and the close box;\n"
               "2 nothing was shown.\n"
               "Keys: Enter presses the button with the focus, Ctrl+C copies the report.");
    try
    {
        app.parse(argc, argv);
    }
    catch (const CLI::ParseError& failure)
    {
        return app.exit(failure) == 0 ? 0 : NotShown;
    }
    if (answerFd >= 0 && fcntl(answerFd, F_GETFD) < 0)
        Fail("--answer-fd " + std::to_string(answerFd) + ": " + std::strerror(errno));

    std::signal(SIGPIPE, SIG_IGN); // whoever asked may be gone
    const std::string text = ReadReport(file);
    Report::OpenDisplay();
    const auto units = Report::UseDialogFont();
    int answer;
    if (*errorOption || *messageOption || *questionOption)
    {
        const auto kind = *errorOption     ? Report::MessageKind::Error
                          : *messageOption ? Report::MessageKind::Plain
                                           : Report::MessageKind::Confirm;
        Report::MessageWindow window(units, kind, *errorOption ? error : *messageOption ? message : question, text);
        answer = window.Run();
    }
    else
    {
        Report::ReportWindow window(units, text);
        answer = window.Run();
    }
    Fl::flush();
    if (answerFd >= 0)
    {
        const char byte = static_cast<char>('0' + answer);
        if (write(answerFd, &byte, 1) != 1)
            Fail(std::string("cannot tell the answer: ") + std::strerror(errno));
    }
    Report::LeaveClipboardBehind(answerFd);
    _exit(answer); // no destructor may speak to the display any more
}
