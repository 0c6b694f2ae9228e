#pragma once

#include <QString>
#include <QStringList>

// Shows one short message to the user.
class Toaster
{
public:
    virtual ~Toaster();
    virtual void showToast(const QString &text) = 0;
};
