/*
 * Prints what gpsd exports in the shared memory of GPSD_SHM_KEY, as "MODE STATUS SECONDS LATITUDE LONGITUDE"; fails
 * when nothing is exported.
 */
#include <gps.h>

#include <stdio.h>
#include <string.h>

int main(void)
{
    struct gps_data_t data;
    memset(&data, 0, sizeof data);
    if (gps_open(GPSD_SHARED_MEMORY, NULL, &data) != 0)
    {
        return 1;
    }
    /* A read that meets gpsd while it is writing returns 0; the caller asks again. */
    const int length = gps_read(&data, NULL, 0);
    if (length > 0)
    {
        printf("%d %d %.3f %.9f %.9f\n", data.fix.mode, data.fix.status,
               (double)data.fix.time.tv_sec + (double)data.fix.time.tv_nsec / 1e9, data.fix.latitude,
               data.fix.longitude);
    }
    gps_close(&data);
    return length > 0 ? 0 : 1;
}
