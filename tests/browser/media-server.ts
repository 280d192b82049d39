import { createSocket } from "node:dgram";
import { createServer } from "node:http";
import type { AddressInfo } from "node:net";

/** A media server of the home network, on the loopback: its root has one folder, which it lists once it is released. */
export async function startMediaServer(name: string, folder: string) {
  let release: () => void = () => {};
  const released = new Promise<void>((resolve) => (release = resolve));
  const udn = `uuid:browser-test-${process.pid}`;
  const device = "urn:schemas-upnp-org:device:MediaServer:1";
  const service = "urn:schemas-upnp-org:service:ContentDirectory:1";
  const didl =
    `<DIDL-Lite xmlns="urn:schemas-upnp-org:metadata-1-0/DIDL-Lite/" xmlns:dc="http://purl.org/dc/elements/1.1/"` +
    ` xmlns:upnp="urn:schemas-upnp-org:metadata-1-0/upnp/"><container id="1" parentID="0" restricted="1">` +
    `<dc:title>${folder}</dc:title><upnp:class>object.container</upnp:class></container></DIDL-Lite>`;
  const result = didl.replaceAll("&", "&amp;").replaceAll("<", "&lt;");
  const answer =
    `<s:Envelope xmlns:s="http://schemas.xmlsoap.org/soap/envelope/"><s:Body><u:BrowseResponse xmlns:u="${service}">` +
    `<Result>${result}</Result><NumberReturned>1</NumberReturned><TotalMatches>1</TotalMatches><UpdateID>1</UpdateID>` +
    `</u:BrowseResponse></s:Body></s:Envelope>`;
  const description =
    `<root xmlns="urn:schemas-upnp-org:device-1-0"><device><deviceType>${device}</deviceType>` +
    `<friendlyName>${name}</friendlyName><UDN>${udn}</UDN><serviceList><service><serviceType>${service}</serviceType>` +
    `<controlURL>/control</controlURL></service></serviceList></device></root>`;

  const server = createServer((request, response) => {
    response.setHeader("Content-Type", 'text/xml; charset="utf-8"');
    if (request.url === "/control") void released.then(() => response.end(answer));
    else response.end(description);
  }).listen(0, "127.0.0.1");
  await new Promise((resolve) => server.once("listening", resolve));
  const { port } = server.address() as AddressInfo;

  const socket = createSocket("udp4");
  await new Promise<void>((resolve) => socket.bind(0, resolve));
  socket.setMulticastInterface("127.0.0.1");
  const announcement =
    `NOTIFY * HTTP/1.1\r\nHOST: 239.255.255.250:1900\r\nCACHE-CONTROL: max-age=1800\r\n` +
    `LOCATION: http://127.0.0.1:${port}/desc.xml\r\nSERVER: test UPnP/1.0 test/1\r\nNT: ${device}\r\n` +
    `USN: ${udn}::${device}\r\nNTS: ssdp:alive\r\n\r\n`;
  // Datagrams get lost, and the set may not listen yet.
  const announcing = setInterval(() => socket.send(announcement, 1900, "239.255.255.250"), 200);
  return {
    release,
    stop: () => {
      clearInterval(announcing);
      socket.close();
      server.closeAllConnections();
      server.close();
    },
  };
}
