/* Records, and follows the time zone, with what gdbus-codegen makes of the interface file: follow_gdbus [ZONE] */
#include "controller.h"

#include <stdio.h>
#include <stdlib.h>

#define SERVICE "com.tavilon.common.Controller1"
#define PATH "/com/tavilon/common/Controller1"
#define CONTROL SERVICE ".Control"

static int awaited = 2;

static void check(gboolean done, GError* error)
{
    if (!done)
    {
        fprintf(stderr, "%s\n", error->message);
        exit(1);
    }
}

static void on_signal(GDBusConnection* bus, const gchar* sender, const gchar* path, const gchar* interface,
                      const gchar* member, GVariant* values, gpointer loop)
{
    (void)bus, (void)sender, (void)path, (void)interface, (void)values;
    if (g_str_equal(member, "TimezoneChanged") || g_str_equal(member, "TimeChanged"))
    {
        puts(member);
        --awaited;
    }
    if (awaited == 0)
    {
        g_main_loop_quit(loop);
    }
}

int main(int argc, char** argv)
{
    GError* error = NULL;
    GMainLoop* loop = g_main_loop_new(NULL, FALSE);
    CcuControl* proxy =
        ccu_control_proxy_new_for_bus_sync(G_BUS_TYPE_SESSION, G_DBUS_PROXY_FLAGS_NONE, SERVICE, PATH, NULL, &error);
    check(proxy != NULL, error);
    g_dbus_proxy_set_default_timeout(G_DBUS_PROXY(proxy), 120000);
    GDBusConnection* bus = g_dbus_proxy_get_connection(G_DBUS_PROXY(proxy));
    /* By path and interface, without a sender: the proxy's own "timezone-changed" and "time-changed" never come. */
    g_dbus_connection_signal_subscribe(bus, NULL, CONTROL, NULL, PATH, NULL, G_DBUS_SIGNAL_FLAGS_NONE, on_signal, loop,
                                       NULL);

    gchar* zone = ccu_control_dup_get_timezone(proxy);
    printf("zone: %s\n", zone);
    gint code = 0;
    gchar* message = NULL;
    check(ccu_control_call_video_record_start_sync(proxy, 1920, 1080, 90, &code, &message, NULL, &error), error);
    printf("start: %s\n", message);
    g_free(message);
    if (code == 0)
    {
        check(ccu_control_call_video_record_stop_sync(proxy, &code, &message, NULL, &error), error);
        printf("stop: %s\n", message);
        g_free(message);
    }

    check(ccu_control_call_set_timezone_sync(proxy, argc > 1 ? argv[1] : zone, NULL, &error), error);
    g_main_loop_run(loop);
    /* Asked for again, since no PropertiesChanged brings the proxy's cache up to date. */
    printf("cached: %s\n", ccu_control_get_get_timezone(proxy));
    GVariant* fresh =
        g_dbus_proxy_call_sync(G_DBUS_PROXY(proxy), "org.freedesktop.DBus.Properties.Get",
                               g_variant_new("(ss)", CONTROL, "GetTimezone"), G_DBUS_CALL_FLAGS_NONE, -1, NULL, &error);
    check(fresh != NULL, error);
    GVariant* value = NULL;
    g_variant_get(fresh, "(v)", &value);
    printf("zone: %s\n", g_variant_get_string(value, NULL));

    g_variant_unref(value);
    g_variant_unref(fresh);
    g_free(zone);
    g_object_unref(proxy);
    g_main_loop_unref(loop);
    return 0;
}
