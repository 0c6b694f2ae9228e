#include "shell/sign_in.h"

namespace {

QString one_line(QString text)
{
    for (QChar &c : text) {
        if (c == QLatin1Char('\n') || c == QLatin1Char('\r') || c == QChar(0x2028) ||
            c == QChar(0x2029))
            c = QLatin1Char(' ');
    }
    return text;
}

} // namespace

SignInStep sign_in_step(SignInAction action, const QString &fieldText)
{
    SignInStep step;
    switch (action) {
    case SignInAction::SendPhone:
        step.log = QStringLiteral("ui: send phone\n");
        step.command = QStringLiteral("phone ") + one_line(fieldText);
        break;
    case SignInAction::SendCode:
        step.log = QStringLiteral("ui: send code\n");
        step.command = QStringLiteral("code ") + one_line(fieldText);
        break;
    case SignInAction::ResendCode:
        step.log = QStringLiteral("ui: resend code\n");
        step.command = QStringLiteral("resend");
        break;
    case SignInAction::SendPassword:
        step.log = QStringLiteral("ui: send password\n");
        step.command = QStringLiteral("password ") + one_line(fieldText);
        break;
    }
    step.command = step.command.trimmed();
    return step;
}
