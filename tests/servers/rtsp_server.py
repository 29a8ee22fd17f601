"""An RTSP server that records the H.264 and Opus it is sent: rtsp_server.py PORT FILE.mkv

rtsp://127.0.0.1:PORT/live is recorded as FILE.mkv. Runs on the system's own Python, which has GStreamer.
"""
import sys

import gi
gi.require_version("Gst", "1.0")
gi.require_version("GstRtspServer", "1.0")
from gi.repository import GLib, Gst, GstRtspServer  # noqa: E402

PIPELINE = """( rtph264depay name=depay0 ! h264parse ! queue ! mux.
                rtpopusdepay name=depay1 ! queue ! mux.
                matroskamux name=mux offset-to-zero=true ! filesink location="{}" )"""


def keep_senders_times(_, media):
    """By the times of arrival, what comes in a burst would have no duration."""
    def configure(_):
        for element in media.get_element().get_parent().children:
            if element.get_factory().get_name() == "rtpbin":
                element.set_property("buffer-mode", "none")
    media.connect("prepared", configure)


Gst.init(None)
server = GstRtspServer.RTSPServer(address="127.0.0.1", service=sys.argv[1])
factory = GstRtspServer.RTSPMediaFactory()
factory.set_transport_mode(GstRtspServer.RTSPTransportMode.RECORD)
factory.connect("media-configure", keep_senders_times)
factory.set_launch(PIPELINE.format(sys.argv[2]))
factory.set_eos_shutdown(True)  # the file is finished when the sender says goodbye
server.get_mount_points().add_factory("/live", factory)
server.attach()
GLib.MainLoop().run()
