// Owns the precompiled headers of the tests, which only an executable can share with executables.
int main() {}
