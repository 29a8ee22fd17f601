"""TLS in front of another server: tls_proxy.py PORT SERVER_PORT CERTIFICATE_AND_KEY.pem"""
import asyncio
import socket
import ssl
import sys


async def pump(reader, writer):
    try:
        while data := await reader.read(65536):
            writer.write(data)
            await writer.drain()
    except OSError:
        pass
    writer.close()


async def serve(reader, writer):
    try:
        behind = await asyncio.open_connection("127.0.0.1", int(sys.argv[2]))
    except OSError:
        writer.close()
        return
    await asyncio.gather(pump(reader, behind[1]), pump(behind[0], writer))


async def main():
    tls = ssl.SSLContext(ssl.PROTOCOL_TLS_SERVER)
    tls.load_cert_chain(sys.argv[3])
    listener = socket.create_server(("127.0.0.1", int(sys.argv[1])))
    # A proxy that hangs is felt soon.
    listener.setsockopt(socket.SOL_SOCKET, socket.SO_RCVBUF, 65536)
    server = await asyncio.start_server(serve, sock=listener, ssl=tls)
    await server.serve_forever()

asyncio.run(main())
