#include "shell/sign_in.h"

#include <QtTest>

Q_DECLARE_METATYPE(SignInAction)

class TestSignIn : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void step_data()
    {
        QTest::addColumn<SignInAction>("action");
        QTest::addColumn<QString>("field");
        QTest::addColumn<QString>("command");
        auto row = [](const char *name, SignInAction a, const QString &field, const char *command) {
            QTest::newRow(name) << a << field << command;
        };
        using A = SignInAction;
        row("phone, inner blanks kept", A::SendPhone, "+1 555 0100", "phone +1 555 0100");
        row("phone trailing blanks trimmed", A::SendPhone, "+1555   ", "phone +1555");
        row("empty code is the bare word", A::SendCode, QString(), "code");
        row("pasted line break", A::SendPassword, "pw\nlogout", "password pw logout");
        row("CR and separators", A::SendCode, "1\r2" + QString(QChar(0x2028)) + "3", "code 1 2 3");
    }
    void step()
    {
        QFETCH(SignInAction, action);
        QFETCH(QString, field);
        QFETCH(QString, command);
        QCOMPARE(sign_in_step(action, field).command, command);
    }
};

QTEST_GUILESS_MAIN(TestSignIn)
#include "test_sign_in.moc"
