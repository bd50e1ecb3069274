/* The library that tests load. */
int qorFixtureAnswer = 42;
