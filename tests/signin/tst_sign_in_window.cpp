#include "signin/sign_in_fixture.h"
class SignInWindowTest : public QObject
{
    Q_OBJECT
};
QTEST_MAIN(SignInWindowTest)
#include "tst_sign_in_window.moc"
