// SkyBox: the cube-map texture built from the resource images, the cube's 36 vertices,
// and drawing with the eye's translation removed.
#include "viewer/sky_box.hpp"

#include <QImage>

#include "viewer/viewer_resources.hpp"

namespace {

// The 12 triangles of the cube from -1 to 1.
const float kCube[108] = {
    -1, 1,  -1, -1, -1, -1, 1,  -1, -1, 1,  -1, -1, 1,  1,  -1, -1, 1,  -1,
    -1, -1, 1,  -1, -1, -1, -1, 1,  -1, -1, 1,  -1, -1, 1,  1,  -1, -1, 1,
    1,  -1, -1, 1,  -1, 1,  1,  1,  1,  1,  1,  1,  1,  1,  -1, 1,  -1, -1,
    -1, -1, 1,  -1, 1,  1,  1,  1,  1,  1,  1,  1,  1,  -1, 1,  -1, -1, 1,
    -1, 1,  -1, 1,  1,  -1, 1,  1,  1,  1,  1,  1,  -1, 1,  1,  -1, 1,  -1,
    -1, -1, -1, -1, -1, 1,  1,  -1, -1, 1,  -1, -1, -1, -1, 1,  1,  -1, 1};

}  // namespace

SkyBox::SkyBox() : vertexBuffer(QOpenGLBuffer::VertexBuffer) {}

SkyBox::~SkyBox() = default;

void SkyBox::initializeGL() {
    initializeOpenGLFunctions();
    initViewerResources();
    program.addShaderFromSourceFile(QOpenGLShader::Vertex, ":/shaders/skybox.vert");
    program.addShaderFromSourceFile(QOpenGLShader::Fragment, ":/shaders/skybox.frag");
    program.link();
    program.bind();
    initBox();
    vao.create();
    vao.bind();
    vertexBuffer.create();
    vertexBuffer.bind();
    vertexBuffer.allocate(kCube, int(sizeof(kCube)));
    program.enableAttributeArray("aPosition");
    program.setAttributeBuffer("aPosition", GL_FLOAT, 0, 3, 12);
    program.setUniformValue("uTexture", 0);
    vao.release();
    vertexBuffer.release();
    program.release();
}

void SkyBox::initBox() {
    const QImage side = QImage(":/images/skybox_side.png").convertToFormat(QImage::Format_RGBA8888);
    const QImage top = QImage(":/images/skybox_top.png").convertToFormat(QImage::Format_RGBA8888);
    const QImage bottom = QImage(":/images/skybox_bottom.png").convertToFormat(QImage::Format_RGBA8888);
    if (side.isNull() || top.isNull() || bottom.isNull()) return;
    texture = std::make_unique<QOpenGLTexture>(QOpenGLTexture::TargetCubeMap);
    texture->create();
    texture->setSize(side.width(), side.height(), side.depth());
    texture->setFormat(QOpenGLTexture::RGBA8_UNorm);
    texture->allocateStorage();
    const std::pair<QOpenGLTexture::CubeMapFace, const QImage*> faces[] = {
        {QOpenGLTexture::CubeMapPositiveX, &side}, {QOpenGLTexture::CubeMapPositiveY, &top},
        {QOpenGLTexture::CubeMapPositiveZ, &side}, {QOpenGLTexture::CubeMapNegativeX, &side},
        {QOpenGLTexture::CubeMapNegativeY, &bottom}, {QOpenGLTexture::CubeMapNegativeZ, &side}};
    for (const auto& face : faces)
        texture->setData(0, 0, face.first, QOpenGLTexture::RGBA, QOpenGLTexture::UInt8,
                         face.second->constBits());
    texture->setWrapMode(QOpenGLTexture::ClampToEdge);
    texture->setMinMagFilters(QOpenGLTexture::LinearMipMapLinear, QOpenGLTexture::LinearMipMapLinear);
}

void SkyBox::draw(const QMatrix4x4& viewProjection) {
    // Without its images the box would only hide the scene.
    if (!program.isLinked() || !texture) return;
    glDisable(GL_DEPTH_TEST);
    glDepthMask(GL_FALSE);
    program.bind();
    if (texture) texture->bind(0);
    // Only the rotation part: the box stays centred on the eye.
    QMatrix4x4 rotationOnly;
    for (int row = 0; row < 3; ++row)
        for (int col = 0; col < 3; ++col) rotationOnly(row, col) = viewProjection(row, col);
    program.setUniformValue("mvpMatrix", rotationOnly);
    vao.bind();
    glDrawArrays(GL_TRIANGLES, 0, 36);
    vao.release();
    program.release();
    glDepthMask(GL_TRUE);
}
