#include "probes/ShellQuote.h"

QString ShellQuote(const QString &text)
{
    QString quoted = text;
    quoted.replace(QLatin1Char('\''), QLatin1String("'\\''"));
    return QLatin1Char('\'') + quoted + QLatin1Char('\'');
}

QString ShellQuoteIfNeeded(const QString &text)
{
    if (text.isEmpty())
        return ShellQuote(text);
    // Anything the shell splits at, expands, globs, redirects or treats as a comment or a home
    // folder. Letters outside ASCII are plain bytes to the shell and need nothing.
    static const QString special = QStringLiteral(" \t\n\r|&;<>()$`\\\"'*?[]#~{}!");
    for (const QChar c : text) {
        if (special.contains(c) || c.unicode() < 0x20 || c.unicode() == 0x7f)
            return ShellQuote(text);
    }
    return text;
}
