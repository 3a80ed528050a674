/* The library that the tests load: one function. */
int sampleAnswer(void);

int sampleAnswer(void)
{
    return 42;
}
