// A library for the tests of the loader.

extern "C"
{
    int ProbeOne()
    {
        return 1;
    }

    int ProbeTwo()
    {
        return 2;
    }
}
