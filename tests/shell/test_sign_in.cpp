#include "shell/sign_in.h"

#include <QtTest>

Q_DECLARE_METATYPE(SignInAction)

class TestSignIn : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void step_data();
    void step();
};

void TestSignIn::step_data()
{
    QTest::addColumn<SignInAction>("action");
    QTest::addColumn<QString>("field");
    QTest::addColumn<QString>("log");
    QTest::addColumn<QString>("command");

    QTest::newRow("phone") << SignInAction::SendPhone << QStringLiteral("+15550100")
                           << QStringLiteral("ui: send phone\n")
                           << QStringLiteral("phone +15550100");
    QTest::newRow("phone with inner blanks kept")
        << SignInAction::SendPhone << QStringLiteral("+1 555 0100")
        << QStringLiteral("ui: send phone\n") << QStringLiteral("phone +1 555 0100");
    QTest::newRow("phone trailing blanks trimmed")
        << SignInAction::SendPhone << QStringLiteral("+1555   ")
        << QStringLiteral("ui: send phone\n") << QStringLiteral("phone +1555");
    QTest::newRow("empty code is the bare word")
        << SignInAction::SendCode << QString() << QStringLiteral("ui: send code\n")
        << QStringLiteral("code");
    QTest::newRow("code") << SignInAction::SendCode << QStringLiteral("12345")
                          << QStringLiteral("ui: send code\n") << QStringLiteral("code 12345");
    QTest::newRow("resend ignores field")
        << SignInAction::ResendCode << QStringLiteral("junk") << QStringLiteral("ui: resend code\n")
        << QStringLiteral("resend");
    QTest::newRow("password keeps inner blanks")
        << SignInAction::SendPassword << QStringLiteral("correct horse")
        << QStringLiteral("ui: send password\n") << QStringLiteral("password correct horse");
    QTest::newRow("pasted line break cannot start a second command")
        << SignInAction::SendPassword << QStringLiteral("pw\nlogout")
        << QStringLiteral("ui: send password\n") << QStringLiteral("password pw logout");
    QTest::newRow("carriage return and separators")
        << SignInAction::SendCode << QStringLiteral("1\r2") + QChar(0x2028) + QStringLiteral("3")
        << QStringLiteral("ui: send code\n") << QStringLiteral("code 1 2 3");
}

void TestSignIn::step()
{
    QFETCH(SignInAction, action);
    QFETCH(QString, field);
    QFETCH(QString, log);
    QFETCH(QString, command);
    const SignInStep s = sign_in_step(action, field);
    QCOMPARE(s.log, log);
    QCOMPARE(s.command, command);
    QVERIFY(!s.command.contains(QLatin1Char('\n')));
}

QTEST_GUILESS_MAIN(TestSignIn)
#include "test_sign_in.moc"
