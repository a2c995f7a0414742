// serve_node.js <port>: answers POSTs with 32 bytes, with the package "coap" of node_modules.
const coap = require('coap');

const server = coap.createServer((request, response) => {
  response.code = '2.01';
  response.setOption('Content-Format', 'text/plain');
  response.end(Buffer.alloc(32));
});
server.listen(Number(process.argv[2]), '127.0.0.1', () => console.log('ready'));
