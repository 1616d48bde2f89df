// Placeholder until the factory lands.
namespace Nimbal {}
