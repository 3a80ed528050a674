/* A library that the tests load: it calls a function that is nowhere. */
int sampleNowhere(void);
int sampleAnswer(void);
int sampleQuestion(void);

int sampleAnswer(void)
{
    return 43;
}

int sampleQuestion(void)
{
    return sampleNowhere();
}
