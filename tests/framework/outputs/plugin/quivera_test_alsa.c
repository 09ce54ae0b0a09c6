/*
 * A sound card for the tests, as an ALSA plugin module (loaded through the test configuration).
 *
 * PCM type "quivera_test": a playback PCM that offers only the rates, formats and channel count
 * its configuration names, writes every byte it is given to a file, and either consumes at once
 * or at the pace of real time (then an application that falls behind gets a real underrun).
 * Closing or stopping (drop) saves what was written last.
 *
 *   pcm.name {
 *       type quivera_test
 *       rates [ 44100 96000 ]          # default [ 44100 48000 ]
 *       formats [ "S16_LE" "S24_3LE" ] # default [ "S16_LE" ]
 *       channels 2                     # default 2
 *       paced true                     # default false
 *       file "/path/out.raw"           # optional; emptied at each hw_params, and "<file>.params"
 *                                      # receives "RATE FORMAT CHANNELS"
 *   }
 *
 * CTL type "quivera_test": a mixer with one stereo playback switch per name, whose state lives in
 * a file so that it survives closing and opening the mixer.
 *
 *   ctl.name { type quivera_test switches [ "Headphone" "Speaker" ] state "/path/state" }
 */

#include <alsa/asoundlib.h>
#include <alsa/control_external.h>
#include <alsa/pcm_external.h>

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/eventfd.h>
#include <sys/timerfd.h>
#include <time.h>
#include <unistd.h>

#define MAX_LIST 32

/* ---------------------------------------------------------------- PCM */

typedef struct {
    snd_pcm_ioplug_t io;
    unsigned int rates[MAX_LIST];
    unsigned int rateCount;
    unsigned int formats[MAX_LIST];
    unsigned int formatCount;
    unsigned int channels;
    int paced;
    char *path;
    int out;
    int pollFd;
    unsigned long long saved;      /* frames of the buffer already written to the file */
    unsigned long long startFrame; /* frames consumed when the stream started */
    struct timespec startTime;
    int running;
} test_pcm_t;

/*
 * The plugin works in ALSA's pseudo-mmap mode: the application (or ALSA's plug in front of us)
 * fills a ring buffer that ALSA keeps for us, and io.appl_ptr tells how far. Whatever is new is
 * saved before we report the device's position, so no frame can be overwritten unsaved.
 */
static void save_new_frames(test_pcm_t *p)
{
    const snd_pcm_ioplug_t *io = &p->io;
    const unsigned long long appl = io->appl_ptr;
    if (appl <= p->saved || io->buffer_size == 0)
        return;
    const snd_pcm_channel_area_t *areas = snd_pcm_ioplug_mmap_areas(&p->io);
    const size_t frameBytes = areas[0].step / 8;
    while (p->saved < appl) {
        const snd_pcm_uframes_t offset = p->saved % io->buffer_size;
        snd_pcm_uframes_t frames = io->buffer_size - offset;
        if (frames > appl - p->saved)
            frames = appl - p->saved;
        const char *base = (const char *)areas[0].addr + (areas[0].first + offset * areas[0].step) / 8;
        size_t bytes = frames * frameBytes;
        while (p->out >= 0 && bytes > 0) {
            const ssize_t n = write(p->out, base, bytes);
            if (n < 0 && errno == EINTR)
                continue;
            if (n < 0)
                break;
            base += n;
            bytes -= (size_t)n;
        }
        p->saved += frames;
    }
}

static double seconds_since(const struct timespec *t)
{
    struct timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return (double)(now.tv_sec - t->tv_sec) + (double)(now.tv_nsec - t->tv_nsec) / 1e9;
}

static unsigned long long consumed(test_pcm_t *p)
{
    if (!p->paced)
        return p->io.appl_ptr;
    if (!p->running)
        return p->startFrame;
    return p->startFrame + (unsigned long long)(seconds_since(&p->startTime) * p->io.rate);
}

static int pcm_start(snd_pcm_ioplug_t *io)
{
    test_pcm_t *p = io->private_data;
    clock_gettime(CLOCK_MONOTONIC, &p->startTime);
    p->startFrame = consumed(p);
    p->running = 1;
    return 0;
}

static int pcm_stop(snd_pcm_ioplug_t *io)
{
    test_pcm_t *p = io->private_data;
    save_new_frames(p);
    p->startFrame = consumed(p);
    if (p->startFrame > io->appl_ptr)
        p->startFrame = io->appl_ptr;
    p->running = 0;
    return 0;
}

static snd_pcm_sframes_t pcm_pointer(snd_pcm_ioplug_t *io)
{
    test_pcm_t *p = io->private_data;
    save_new_frames(p);
    const unsigned long long c = consumed(p);
    if (c > io->appl_ptr)
        return -EPIPE; /* the application did not keep up */
    return (snd_pcm_sframes_t)c;
}

static int pcm_prepare(snd_pcm_ioplug_t *io)
{
    test_pcm_t *p = io->private_data;
    p->saved = 0;
    p->startFrame = 0;
    p->running = 0;
    return 0;
}

static int pcm_hw_params(snd_pcm_ioplug_t *io, snd_pcm_hw_params_t *params)
{
    test_pcm_t *p = io->private_data;
    (void)params;
    if (p->path) {
        if (p->out >= 0)
            close(p->out);
        p->out = open(p->path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
        if (p->out < 0)
            return -errno;
        char name[4096];
        snprintf(name, sizeof name, "%s.params", p->path);
        FILE *f = fopen(name, "w");
        if (f) {
            fprintf(f, "%u %s %u\n", io->rate, snd_pcm_format_name(io->format), io->channels);
            fclose(f);
        }
    }
    if (p->paced && p->pollFd >= 0) {
        /* Wake a waiting writer once a period has been played. */
        const long long ns = (long long)io->period_size * 1000000000LL / io->rate;
        struct itimerspec t;
        t.it_interval.tv_sec = ns / 1000000000LL;
        t.it_interval.tv_nsec = ns % 1000000000LL;
        t.it_value = t.it_interval;
        timerfd_settime(p->pollFd, 0, &t, NULL);
    }
    return 0;
}

static int pcm_poll_revents(snd_pcm_ioplug_t *io, struct pollfd *pfd, unsigned int nfds,
                            unsigned short *revents)
{
    test_pcm_t *p = io->private_data;
    (void)nfds;
    if (p->paced && (pfd[0].revents & POLLIN)) {
        unsigned long long ticks;
        if (read(p->pollFd, &ticks, sizeof ticks) < 0) {
            /* nothing to clear */
        }
    }
    *revents = (pfd[0].revents & POLLIN) ? POLLOUT : 0;
    return 0;
}

static int pcm_close(snd_pcm_ioplug_t *io)
{
    test_pcm_t *p = io->private_data;
    if (p->out >= 0)
        close(p->out);
    if (p->pollFd >= 0)
        close(p->pollFd);
    free(p->path);
    free(p);
    return 0;
}

static const snd_pcm_ioplug_callback_t pcm_callbacks = {
    .start = pcm_start,
    .stop = pcm_stop,
    .pointer = pcm_pointer,
    .close = pcm_close,
    .hw_params = pcm_hw_params,
    .prepare = pcm_prepare,
    .poll_revents = pcm_poll_revents,
};

static int read_list(snd_config_t *n, unsigned int *list, unsigned int *count, int formats)
{
    snd_config_iterator_t i, next;
    *count = 0;
    snd_config_for_each(i, next, n) {
        snd_config_t *item = snd_config_iterator_entry(i);
        if (*count == MAX_LIST)
            return -EINVAL;
        if (formats) {
            const char *s;
            if (snd_config_get_string(item, &s) < 0)
                return -EINVAL;
            const snd_pcm_format_t f = snd_pcm_format_value(s);
            if (f == SND_PCM_FORMAT_UNKNOWN)
                return -EINVAL;
            list[(*count)++] = (unsigned int)f;
        } else {
            long v;
            if (snd_config_get_integer(item, &v) < 0)
                return -EINVAL;
            list[(*count)++] = (unsigned int)v;
        }
    }
    return 0;
}

SND_PCM_PLUGIN_DEFINE_FUNC(quivera_test)
{
    snd_config_iterator_t i, next;
    int err;
    (void)root;
    if (stream != SND_PCM_STREAM_PLAYBACK)
        return -EINVAL;
    test_pcm_t *p = calloc(1, sizeof *p);
    if (!p)
        return -ENOMEM;
    p->out = -1;
    p->pollFd = -1;
    p->channels = 2;
    p->rates[0] = 44100;
    p->rates[1] = 48000;
    p->rateCount = 2;
    p->formats[0] = SND_PCM_FORMAT_S16_LE;
    p->formatCount = 1;

    snd_config_for_each(i, next, conf) {
        snd_config_t *n = snd_config_iterator_entry(i);
        const char *id;
        if (snd_config_get_id(n, &id) < 0)
            continue;
        if (!strcmp(id, "comment") || !strcmp(id, "type") || !strcmp(id, "hint") || id[0] == '@')
            continue;
        if (!strcmp(id, "rates")) {
            err = read_list(n, p->rates, &p->rateCount, 0);
        } else if (!strcmp(id, "formats")) {
            err = read_list(n, p->formats, &p->formatCount, 1);
        } else if (!strcmp(id, "channels")) {
            long v;
            err = snd_config_get_integer(n, &v);
            p->channels = (unsigned int)v;
        } else if (!strcmp(id, "paced")) {
            err = snd_config_get_bool(n);
            p->paced = err > 0;
        } else if (!strcmp(id, "file")) {
            const char *s;
            err = snd_config_get_string(n, &s);
            if (err >= 0)
                p->path = strdup(s);
        } else {
            err = -EINVAL;
        }
        if (err < 0) {
            free(p->path);
            free(p);
            return -EINVAL;
        }
    }

    p->pollFd = p->paced ? timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)
                         : eventfd(1, EFD_NONBLOCK | EFD_CLOEXEC); /* always ready */
    p->io.version = SND_PCM_IOPLUG_VERSION;
    p->io.name = "Quivera test PCM";
    p->io.callback = &pcm_callbacks;
    p->io.private_data = p;
    p->io.poll_fd = p->pollFd;
    p->io.poll_events = POLLIN;
    p->io.mmap_rw = 1; /* ALSA's own conversions (plug) need to map a slave's buffer */
    p->io.flags = SND_PCM_IOPLUG_FLAG_BOUNDARY_WA;
    err = snd_pcm_ioplug_create(&p->io, name, stream, mode);
    if (err < 0) {
        close(p->pollFd);
        free(p->path);
        free(p);
        return err;
    }
    const unsigned int access[] = {SND_PCM_ACCESS_RW_INTERLEAVED, SND_PCM_ACCESS_MMAP_INTERLEAVED};
    if ((err = snd_pcm_ioplug_set_param_list(&p->io, SND_PCM_IOPLUG_HW_ACCESS, 2, access)) < 0
        || (err = snd_pcm_ioplug_set_param_list(&p->io, SND_PCM_IOPLUG_HW_FORMAT, p->formatCount, p->formats)) < 0
        || (err = snd_pcm_ioplug_set_param_minmax(&p->io, SND_PCM_IOPLUG_HW_CHANNELS, p->channels, p->channels)) < 0
        || (err = snd_pcm_ioplug_set_param_list(&p->io, SND_PCM_IOPLUG_HW_RATE, p->rateCount, p->rates)) < 0
        || (err = snd_pcm_ioplug_set_param_minmax(&p->io, SND_PCM_IOPLUG_HW_PERIOD_BYTES, 64, 1 << 20)) < 0
        || (err = snd_pcm_ioplug_set_param_minmax(&p->io, SND_PCM_IOPLUG_HW_PERIODS, 2, 64)) < 0) {
        snd_pcm_ioplug_delete(&p->io);
        return err;
    }
    *pcmp = p->io.pcm;
    return 0;
}

SND_PCM_PLUGIN_SYMBOL(quivera_test);

/* ---------------------------------------------------------------- CTL */

typedef struct {
    snd_ctl_ext_t ext;
    char names[MAX_LIST][44];
    long values[MAX_LIST];
    unsigned int count;
    char *statePath;
} test_ctl_t;

static void ctl_save(test_ctl_t *c)
{
    FILE *f = fopen(c->statePath, "w");
    if (!f)
        return;
    for (unsigned int k = 0; k < c->count; ++k)
        fprintf(f, "%ld\n", c->values[k]);
    fclose(f);
}

static void ctl_load(test_ctl_t *c)
{
    FILE *f = fopen(c->statePath, "r");
    for (unsigned int k = 0; k < c->count; ++k)
        c->values[k] = k == 0; /* a fresh card plays on its first output */
    if (!f)
        return;
    for (unsigned int k = 0; k < c->count; ++k) {
        if (fscanf(f, "%ld", &c->values[k]) != 1)
            break;
    }
    fclose(f);
}

static void ctl_close(snd_ctl_ext_t *ext)
{
    test_ctl_t *c = ext->private_data;
    close(ext->poll_fd);
    free(c->statePath);
    free(c);
}

static int ctl_elem_count(snd_ctl_ext_t *ext)
{
    return (int)((test_ctl_t *)ext->private_data)->count;
}

static int ctl_elem_list(snd_ctl_ext_t *ext, unsigned int offset, snd_ctl_elem_id_t *id)
{
    test_ctl_t *c = ext->private_data;
    if (offset >= c->count)
        return -EINVAL;
    snd_ctl_elem_id_set_interface(id, SND_CTL_ELEM_IFACE_MIXER);
    snd_ctl_elem_id_set_name(id, c->names[offset]);
    return 0;
}

static snd_ctl_ext_key_t ctl_find_elem(snd_ctl_ext_t *ext, const snd_ctl_elem_id_t *id)
{
    test_ctl_t *c = ext->private_data;
    const char *name = snd_ctl_elem_id_get_name(id);
    for (unsigned int k = 0; k < c->count; ++k) {
        if (!strcmp(name, c->names[k]))
            return k;
    }
    return SND_CTL_EXT_KEY_NOT_FOUND;
}

static int ctl_get_attribute(snd_ctl_ext_t *ext, snd_ctl_ext_key_t key, int *type, unsigned int *acc,
                             unsigned int *count)
{
    (void)ext;
    (void)key;
    *type = SND_CTL_ELEM_TYPE_BOOLEAN;
    *acc = SND_CTL_EXT_ACCESS_READWRITE;
    *count = 2;
    return 0;
}

static int ctl_read_integer(snd_ctl_ext_t *ext, snd_ctl_ext_key_t key, long *value)
{
    test_ctl_t *c = ext->private_data;
    ctl_load(c);
    value[0] = value[1] = c->values[key];
    return 0;
}

static int ctl_write_integer(snd_ctl_ext_t *ext, snd_ctl_ext_key_t key, long *value)
{
    test_ctl_t *c = ext->private_data;
    ctl_load(c);
    const long v = value[0] || value[1];
    if (c->values[key] == v)
        return 0;
    c->values[key] = v;
    ctl_save(c);
    return 1;
}

static int ctl_read_event(snd_ctl_ext_t *ext, snd_ctl_elem_id_t *id, unsigned int *mask)
{
    (void)ext;
    (void)id;
    (void)mask;
    return -EAGAIN;
}

static const snd_ctl_ext_callback_t ctl_callbacks = {
    .close = ctl_close,
    .elem_count = ctl_elem_count,
    .elem_list = ctl_elem_list,
    .find_elem = ctl_find_elem,
    .get_attribute = ctl_get_attribute,
    .read_integer = ctl_read_integer,
    .write_integer = ctl_write_integer,
    .read_event = ctl_read_event,
};

SND_CTL_PLUGIN_DEFINE_FUNC(quivera_test)
{
    snd_config_iterator_t i, next;
    int err;
    (void)root;
    test_ctl_t *c = calloc(1, sizeof *c);
    if (!c)
        return -ENOMEM;
    snd_config_for_each(i, next, conf) {
        snd_config_t *n = snd_config_iterator_entry(i);
        const char *id;
        if (snd_config_get_id(n, &id) < 0)
            continue;
        if (!strcmp(id, "comment") || !strcmp(id, "type") || !strcmp(id, "hint") || id[0] == '@')
            continue;
        if (!strcmp(id, "switches")) {
            snd_config_iterator_t j, jnext;
            snd_config_for_each(j, jnext, n) {
                const char *s;
                if (c->count == MAX_LIST || snd_config_get_string(snd_config_iterator_entry(j), &s) < 0)
                    goto bad;
                snprintf(c->names[c->count++], sizeof c->names[0], "%s Playback Switch", s);
            }
        } else if (!strcmp(id, "state")) {
            const char *s;
            if (snd_config_get_string(n, &s) < 0)
                goto bad;
            c->statePath = strdup(s);
        } else {
            goto bad;
        }
    }
    if (!c->statePath)
        goto bad;
    ctl_load(c);

    c->ext.version = SND_CTL_EXT_VERSION;
    c->ext.card_idx = 0;
    strcpy(c->ext.id, "QuiveraTest");
    strcpy(c->ext.driver, "quivera_test");
    strcpy(c->ext.name, "Quivera Test Card");
    strcpy(c->ext.longname, "Quivera Test Card");
    strcpy(c->ext.mixername, "Quivera Test Mixer");
    c->ext.poll_fd = eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC); /* never any events */
    c->ext.callback = &ctl_callbacks;
    c->ext.private_data = c;
    err = snd_ctl_ext_create(&c->ext, name, mode);
    if (err < 0) {
        close(c->ext.poll_fd);
        free(c->statePath);
        free(c);
        return err;
    }
    *handlep = c->ext.handle;
    return 0;

bad:
    free(c->statePath);
    free(c);
    return -EINVAL;
}

SND_CTL_PLUGIN_SYMBOL(quivera_test);
