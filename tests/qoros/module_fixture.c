/* The library that tests load. */
int qorFixtureAnswer(void);

int qorFixtureAnswer(void) {
    return 42;
}
