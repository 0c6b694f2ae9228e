/* A stand-in Opus library that offers only the decoder: it forwards the three
 * decoder functions to the system libopus, opened privately, so a lookup of
 * any encoder function in this library fails. */
#include <dlfcn.h>
#include <stddef.h>

typedef struct OpusDecoder OpusDecoder;

static void *sys(const char *name)
{
    static void *h;
    if (!h)
        h = dlopen("libopus.so.0", RTLD_NOW | RTLD_LOCAL);
    return h ? dlsym(h, name) : NULL;
}

OpusDecoder *opus_decoder_create(int fs, int channels, int *error)
{
    OpusDecoder *(*f)(int, int, int *) =
        (OpusDecoder * (*)(int, int, int *)) sys("opus_decoder_create");
    if (!f) {
        if (error)
            *error = -3;
        return NULL;
    }
    return f(fs, channels, error);
}

void opus_decoder_destroy(OpusDecoder *st)
{
    void (*f)(OpusDecoder *) = (void (*)(OpusDecoder *))sys("opus_decoder_destroy");
    if (f)
        f(st);
}

int opus_decode(OpusDecoder *st, const unsigned char *data, int len, short *pcm, int frame_size,
                int decode_fec)
{
    int (*f)(OpusDecoder *, const unsigned char *, int, short *, int, int) =
        (int (*)(OpusDecoder *, const unsigned char *, int, short *, int, int))sys("opus_decode");
    return f ? f(st, data, len, pcm, frame_size, decode_fec) : -3;
}
