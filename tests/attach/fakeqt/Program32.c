/* A 32-bit program: kwscript must refuse to launch it for driving, since
   its agent and the library are x64 code. Built with the i686 compiler. */
int main(void) { return 0; }
