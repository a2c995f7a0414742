// ServeCalifornium <port> <deduplicator>: answers POSTs with 32 bytes, with Californium.  The
// deduplicator is one of CoapConfig: MARK_AND_SWEEP (Californium's default), NO_DEDUPLICATOR...
import java.net.InetSocketAddress;
import org.eclipse.californium.core.CoapResource;
import org.eclipse.californium.core.CoapServer;
import org.eclipse.californium.core.coap.CoAP.ResponseCode;
import org.eclipse.californium.core.coap.MediaTypeRegistry;
import org.eclipse.californium.core.config.CoapConfig;
import org.eclipse.californium.core.network.CoapEndpoint;
import org.eclipse.californium.core.server.resources.CoapExchange;
import org.eclipse.californium.elements.config.Configuration;
import org.eclipse.californium.elements.config.UdpConfig;

class ServeCalifornium {
  private static final byte[] ANSWER = new byte[32];

  private static class Post extends CoapResource {
    Post() { super("post"); }

    @Override
    public void handlePOST(CoapExchange exchange) {
      exchange.respond(ResponseCode.CREATED, ANSWER, MediaTypeRegistry.TEXT_PLAIN);
    }
  }

  public static void main(String[] arguments) {
    CoapConfig.register();
    UdpConfig.register();
    Configuration config = Configuration.createStandardWithoutFile();
    config.set(CoapConfig.DEDUPLICATOR, arguments[1]);
    CoapServer server = new CoapServer(config);
    server.addEndpoint(CoapEndpoint.builder()
        .setConfiguration(config)
        .setInetSocketAddress(new InetSocketAddress("127.0.0.1", Integer.parseInt(arguments[0])))
        .build());
    server.add(new Post());
    server.start();
    System.out.println("ready");
  }
}
