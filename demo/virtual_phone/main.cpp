// A phone made of software: speaks the protocols of the cable on a UNIX socket.
#include <cstdio>

int main()
{
    std::fputs("virtual_phone: nothing to serve yet\n", stderr);
    return 1;
}
