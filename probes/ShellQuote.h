#pragma once

#include <QString>

// Every argument that goes into a shell command line passes through these, so that no file name
// can ever run as a command.

// Wraps text in single quotes; a ' inside becomes '\'' (close, escaped quote, reopen).
QString ShellQuote(const QString &text);

// The text as it is when the shell would read it as one plain word, else ShellQuote(text). For
// commands that traditionally leave a path unquoted: ordinary paths keep their exact command text.
QString ShellQuoteIfNeeded(const QString &text);
