#pragma once

#include <QString>

// The four buttons of the sign-in form.
enum class SignInAction
{
    SendPhone,
    SendCode,
    ResendCode,
    SendPassword
};

// What one button press does: the in-app log line and the command line.
struct SignInStep
{
    QString log;
    QString command;
};

// Builds the step for a button from the field text as typed. The field is not
// validated or reformatted; the command is trimmed (as the command channel
// trims every line), and line breaks typed into a field become blanks so that
// a pasted text can never split into a second command.
SignInStep sign_in_step(SignInAction action, const QString &fieldText);
