// SPDX-License-Identifier: MIT
#include "commands.h"

#include <unistd.h>
#include <CLI/CLI.hpp>

#include <cstdio>
#include <memory>
#include <string_view>

namespace {

void addGlobalOptions(CLI::App& program, Context& context) {
    program.add_option("--library", context.libraryPath, "The control library, or its folder")->type_name("PATH");
    program.add_flag("--json", context.json, "Print one JSON document on standard output");
    program.add_flag("-v,--verbose", context.verbose,
                     "Report also messages that are no failures, and each lost read-out");
    program.set_version_flag("--version", std::string("qdl ") + QDL_PROGRAM_VERSION);
}

// The id of a device stands behind `config`, before what is to be done with it.
class UsageFormatter : public CLI::Formatter {
 public:
    std::string make_usage(const CLI::App* app, std::string name) const override {
        constexpr std::string_view parent = " config ";
        if (const size_t at = name.find(parent); at != std::string::npos) name.insert(at + parent.size(), "ID ");
        return CLI::Formatter::make_usage(app, name);
    }
};

std::string complaintOf(const CLI::ParseError& error) {
    const std::string text = error.what();
    constexpr std::string_view conversion = "Could not convert: ";
    const size_t equals = text.find(" = ");
    if (!text.starts_with(conversion) || equals == std::string::npos) return text;
    const std::string name = text.substr(conversion.size(), equals - conversion.size());
    return name + ": '" + text.substr(equals + 3) + "' is no number, or out of range";
}

void report(Context& context, const Failure& failure) {
    std::fflush(stdout);
    std::fprintf(stderr, "qdl: %s\n", describe(failure).c_str());
    context.document["error"] = {{"status", static_cast<int>(failure.status)},
                                 {"what", failure.what()},
                                 {"code", failure.code},
                                 {"meaning", failure.code ? meaningOf(failure.code) : ""},
                                 {"text", failure.text}};
}

ExitStatus perform(Context& context) {
    try {
        context.command();
        return ExitStatus::Ok;
    } catch (const Failure& failure) {
        report(context, failure);
        return failure.status;
    } catch (const std::exception& exception) {
        report(context, Failure(ExitStatus::Internal, exception.what()));
        return ExitStatus::Internal;
    }
}

// Texts come from HW libraries and need not be valid UTF-8.
void printDocument(const Context& context) {
    if (context.json) std::puts(context.document.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
}

bool wantsJson(int argc, char** argv) {
    for (int i = 1; i < argc; ++i)
        if (std::string_view(argv[i]) == "--json") return true;
    return false;
}

int refuse(const CLI::App& program, Context& context, const CLI::ParseError& error, bool json) {
    if (error.get_exit_code() == 0) return program.exit(error);  // --help, --version
    context.json = json;
    const std::vector<std::string> unknown = program.remaining();
    const bool misnamed = error.get_name() == "RequiredError" && !unknown.empty();
    report(context,
           Failure(ExitStatus::Usage, misnamed ? "there is no subcommand " + unknown.front() : complaintOf(error)));
    std::fputs("Run with --help for more information.\n", stderr);
    printDocument(context);
    return static_cast<int>(ExitStatus::Usage);
}

}  // namespace

int main(int argc, char** argv) {
    CLI::App program("Finds, configures and reads pixel detectors.", "qdl");
    Context context;
    program.formatter(std::make_shared<UsageFormatter>());  // subcommands take it over
    program.require_subcommand(1);
    program.fallthrough();
    // Subcommands take over the footer that stands when they are made.
    program.footer(std::string("Options of all commands: --library PATH, --json, --verbose\n\n") + exitStatusHelp);
    addGlobalOptions(program, context);
    addListCommand(program, context);
    addInfoCommand(program, context);
    addAcquireCommand(program, context);
    addShowCommand(program, context);
    addConfigCommand(program, context);
    program.footer(exitStatusHelp);
    try {
        program.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return refuse(program, context, error, wantsJson(argc, argv));
    }
    ExitStatus status = perform(context);
    printDocument(context);
    if (std::fflush(stdout) != 0 || std::ferror(stdout)) {
        std::fputs("qdl: standard output cannot be written\n", stderr);
        if (status == ExitStatus::Ok) status = ExitStatus::File;
    }
    if (context.endAtOnce) _exit(static_cast<int>(status));
    return static_cast<int>(status);
}
