// serve_rust <port>: answers POSTs with 32 bytes, with the crate "coap".
use std::net::SocketAddr;

use coap::Server;
use coap_lite::{CoapRequest, ContentFormat, ResponseType};

async fn answer(mut request: Box<CoapRequest<SocketAddr>>) -> Box<CoapRequest<SocketAddr>> {
    if let Some(ref mut response) = request.response {
        response.set_status(ResponseType::Created);
        response.message.set_content_format(ContentFormat::TextPlain);
        response.message.payload = vec![0; 32];
    }
    request
}

async fn serve(port: String) {
    let server = Server::new_udp(format!("127.0.0.1:{port}")).expect("the port is free");
    println!("ready");
    server.run(answer).await.expect("the server runs");
}

fn main() {
    let port = std::env::args().nth(1).expect("the port is the argument");
    let runtime = tokio::runtime::Builder::new_current_thread().enable_all().build();
    runtime.expect("a runtime starts").block_on(serve(port));
}
