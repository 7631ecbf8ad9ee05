// A library that lacks a function that it calls: it opens only where symbols are bound late.

extern "C"
{
    int ProbeNowhere();

    int ProbeOne()
    {
        return ProbeNowhere();
    }
}
